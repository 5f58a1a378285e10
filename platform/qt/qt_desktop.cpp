#include "platform/qt/qt_desktop.h"

#include <QApplication>
#include <QByteArray>
#include <QClipboard>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QMimeData>
#include <QUrl>
#include <utility>

#include "platform/qt/qt_text.h"

namespace zunto {

std::optional<std::string> QtPasteboard::plainText() const {
  const QMimeData* data = QGuiApplication::clipboard()->mimeData();
  if (data == nullptr || !data->hasText()) return std::nullopt;
  return fromQString(data->text());
}

void QtBeeper::beep() { QApplication::beep(); }

std::string fileAddress(const std::filesystem::path& path) {
  // By its bytes: a file name need not be text.
  return "file://" + QByteArray::fromStdString(path.native()).toPercentEncoding("/").toStdString();
}

/// The parent of the replies that are under way.
class QtWorkspace::Replies final : public QObject {};

QtWorkspace::QtWorkspace(std::optional<QDBusConnection> bus)
    : bus_(std::move(bus)), replies_(std::make_unique<Replies>()) {}

QtWorkspace::~QtWorkspace() = default;

void QtWorkspace::openWebAddress(const std::string& url) {
  QDesktopServices::openUrl(QUrl::fromEncoded(QByteArray::fromStdString(url)));
}

void QtWorkspace::reveal(const std::filesystem::path& location) {
  const auto openFolder = [folder = fileAddress(location.parent_path())] {
    QDesktopServices::openUrl(QUrl::fromEncoded(QByteArray::fromStdString(folder)));
  };
  if (!bus_) {
    openFolder();
    return;
  }
  QDBusMessage call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
  call << QStringList(toQString(fileAddress(location))) << QString();
  auto watcher = std::make_unique<QDBusPendingCallWatcher>(bus_->asyncCall(call), replies_.get());
  QObject::connect(watcher.get(), &QDBusPendingCallWatcher::finished, replies_.get(),
                   [openFolder](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     if (finished->isError()) openFolder();
                   });
  static_cast<void>(watcher.release());  // its parent owns it
}

}  // namespace zunto
