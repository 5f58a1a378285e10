#include "platform/qt/qt_socket_channel.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QDataStream>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <map>
#include <thread>
#include <utility>

#include "platform/qt/qt_single_instance.h"
#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

constexpr std::chrono::milliseconds pauseBetweenAttempts(50);
constexpr char accepted = '+';

/// Far more than any link; a longer request is not one of ours.
constexpr qsizetype longestRequest = qsizetype{16} * 1024 * 1024;

/// A descriptor that is closed with its holder.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] bool isOpen() const { return number_ >= 0; }

 private:
  int number_;
};

QByteArray environmentValue(const char* name, const char* fallback) {
  const QByteArray value = qgetenv(name);
  return value.isEmpty() ? QByteArray(fallback) : value;
}

/// Where this user's sockets may stand: the session's runtime folder, else one for this user among the
/// temporary files.
QByteArray folderPath() {
  const QByteArray runtimeFolder = qgetenv("XDG_RUNTIME_DIR");
  if (!runtimeFolder.isEmpty()) return runtimeFolder + "/zunto-helper";
  return environmentValue("TMPDIR", "/tmp") + "/zunto-helper-" + QByteArray::number(getuid());
}

/// Opens the folder, made when missing; -1 unless it is a folder that only this user can enter. A folder that
/// somebody else made there, or a link, would let them listen.
int openPrivateFolder() {
  const QByteArray path = folderPath();
  mkdir(path.constData(), S_IRWXU);
  Descriptor folder(open(path.constData(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat state {};
  if (!folder.isOpen() || fstat(folder.number(), &state) != 0) return -1;
  const bool isPrivate = state.st_uid == getuid() && (state.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  return isPrivate ? fcntl(folder.number(), F_DUPFD_CLOEXEC, 0) : -1;
}

/// One place per display: what is started on another one must not come up here.
QByteArray placeName() {
  const QByteArray display = qgetenv("WAYLAND_DISPLAY") + '\n' + qgetenv("DISPLAY");
  return QCryptographicHash::hash(display, QCryptographicHash::Sha256).toHex().left(16);
}

QByteArray encode(const LaunchRequest& request) {
  QByteArray bytes;
  QDataStream stream(&bytes, QIODevice::WriteOnly);
  stream << request.link.has_value() << QByteArray::fromStdString(request.link.value_or(std::string()))
         << QByteArray::fromStdString(request.activationToken);
  return bytes;
}

/// None while the bytes are not a whole request.
std::optional<LaunchRequest> decode(const QByteArray& bytes) {
  QDataStream stream(bytes);
  bool hasLink = false;
  QByteArray link;
  QByteArray token;
  stream >> hasLink >> link >> token;
  if (stream.status() != QDataStream::Ok) return std::nullopt;
  LaunchRequest request{std::nullopt, token.toStdString()};
  if (hasLink) request.link = link.toStdString();
  return request;
}

}  // namespace

/// The folder with the lock, which lasts exactly as long as the process that holds it, however that ends.
class QtSocketChannel::Place {
 public:
  Place() : folder_(openPrivateFolder()), name_(placeName()), lock_(openLock()) {}

  [[nodiscard]] bool isUsable() const { return lock_.isOpen(); }
  [[nodiscard]] bool take() const { return flock(lock_.number(), LOCK_EX | LOCK_NB) == 0; }

  /// Through the folder's descriptor: a socket's address is too short for some folders' paths.
  [[nodiscard]] QString socketPath() const {
    return QStringLiteral("/proc/self/fd/%1/%2.socket").arg(folder_.number()).arg(QString::fromLatin1(name_));
  }

 private:
  [[nodiscard]] int openLock() const {
    if (!folder_.isOpen()) return -1;
    const QByteArray file = name_ + ".lock";
    return openat(folder_.number(), file.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW,
                  S_IRUSR | S_IWUSR);
  }

  Descriptor folder_;
  QByteArray name_;
  Descriptor lock_;
};

/// Listens for other instances; each sends one request and hears that it was taken.
class QtSocketChannel::Listener {
 public:
  Listener(const QString& path, const std::function<void(const LaunchRequest&)>& received)
      : received_(received) {
    // Who holds the lock knows that a socket that is there belongs to nobody.
    QLocalServer::removeServer(path);
    QObject::connect(&server_, &QLocalServer::newConnection, &server_, [this] { acceptAll(); });
    server_.listen(path);
  }

 private:
  void acceptAll() {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
      QObject::connect(socket, &QLocalSocket::readyRead, socket, [this, socket] { readFrom(*socket); });
      QObject::connect(socket, &QLocalSocket::disconnected, socket, [this, socket] {
        unread_.erase(socket);
        socket->deleteLater();
      });
      readFrom(*socket);
    }
  }

  void readFrom(QLocalSocket& socket) {
    QByteArray& bytes = unread_[&socket];
    bytes += socket.readAll();
    if (bytes.size() > longestRequest) {
      socket.abort();
      return;
    }
    const std::optional<LaunchRequest> request = decode(bytes);
    if (!request) return;
    bytes.clear();
    socket.write(&accepted, 1);
    socket.disconnectFromServer();
    received_(*request);
  }

  const std::function<void(const LaunchRequest&)>& received_;
  std::map<QLocalSocket*, QByteArray> unread_;  // outlives the server's sockets, which still report their end
  QLocalServer server_;
};

namespace {

/// Whether the instance at `path` has taken the request.
bool sendRequest(const QString& path, const LaunchRequest& request, std::chrono::milliseconds patience) {
  const auto limit = static_cast<int>(patience.count());
  QLocalSocket socket;
  socket.connectToServer(path);
  if (!socket.waitForConnected(limit)) return false;
  socket.write(encode(request));
  while (socket.bytesToWrite() > 0) {
    if (!socket.waitForBytesWritten(limit)) return false;
  }
  char answer = 0;
  if (socket.bytesAvailable() == 0) socket.waitForReadyRead(limit);
  return socket.read(&answer, 1) == 1 && answer == accepted;
}

}  // namespace

QtSocketChannel::QtSocketChannel(std::function<void(const LaunchRequest&)> received)
    : received_(std::move(received)) {}

QtSocketChannel::~QtSocketChannel() = default;

bool QtSocketChannel::claim(const LaunchRequest& request, std::chrono::milliseconds patience) {
  place_ = std::make_unique<Place>();
  if (!place_->isUsable()) return true;
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!place_->take()) {
    if (sendRequest(place_->socketPath(), request, patience)) return false;
    // The holder has not begun to listen, or is about to end. One that never answers has the request in its
    // socket; two instances would be worse than a request that waits there.
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(pauseBetweenAttempts);
  }
  listener_ = std::make_unique<Listener>(place_->socketPath(), received_);
  return true;
}

}  // namespace zunto
