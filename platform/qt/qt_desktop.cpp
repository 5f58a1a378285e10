#include "platform/qt/qt_desktop.h"

#include <QApplication>
#include <QByteArray>
#include <QClipboard>
#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QMessageBox>
#include <QMimeData>
#include <QProcess>
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
  if (!bus_) {
    openFolder(location);
    return;
  }
  QDBusMessage call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
  call << QStringList(toQString(fileAddress(location))) << QString();
  auto watcher = std::make_unique<QDBusPendingCallWatcher>(bus_->asyncCall(call), replies_.get());
  QObject::connect(watcher.get(), &QDBusPendingCallWatcher::finished, replies_.get(),
                   [this, location](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     if (finished->isError()) openFolder(location);
                   });
  static_cast<void>(watcher.release());  // its parent owns it
}

void QtWorkspace::openFolder(const std::filesystem::path& location) {
  // Opening a folder that nothing can show fails in silence, so it is asked first whether something can.
  auto query = std::make_unique<QProcess>(replies_.get());
  QProcess& asked = *query.release();  // its parent owns it
  const auto answered = [this, &asked, location] {
    asked.deleteLater();
    const bool couldAsk = asked.error() != QProcess::FailedToStart;
    const bool isNobodyThere = couldAsk && asked.readAllStandardOutput().trimmed().isEmpty();
    const QByteArray folder = QByteArray::fromStdString(fileAddress(location.parent_path()));
    if (isNobodyThere || !QDesktopServices::openUrl(QUrl::fromEncoded(folder))) sayWhere(location);
  };
  QObject::connect(&asked, &QProcess::finished, replies_.get(), answered);
  QObject::connect(&asked, &QProcess::errorOccurred, replies_.get(),
                   [answered](QProcess::ProcessError error) {
                     if (error == QProcess::FailedToStart) answered();
                   });
  asked.start(QStringLiteral("xdg-mime"),
              {QStringLiteral("query"), QStringLiteral("default"), QStringLiteral("inode/directory")});
}

void QtWorkspace::sayWhere(const std::filesystem::path& location) {
  notice_ = std::make_unique<QMessageBox>(QMessageBox::Information, QCoreApplication::applicationName(),
                                          toQString(location.native()), QMessageBox::Ok);
  notice_->setTextFormat(Qt::PlainText);
  notice_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  notice_->setModal(false);
  notice_->show();
}

}  // namespace zunto
