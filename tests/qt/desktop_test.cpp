#include "platform/qt/qt_desktop.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QMessageBox>
#include <QMimeData>
#include <QTemporaryDir>
#include <memory>

#include "platform/qt/qt_dbus_object.h"
#include "tests/qt/private_bus.h"
#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

TEST_F(QtTest, PasteboardGivesItsPlainText) {
  const QtPasteboard pasteboard;
  QGuiApplication::clipboard()->setText(QString::fromUtf8("  https://media.example/ü ●\n"));
  EXPECT_EQ(pasteboard.plainText(), "  https://media.example/ü ●\n");
}

TEST_F(QtTest, PasteboardWithoutTextGivesNone) {
  auto data = std::make_unique<QMimeData>();
  data->setData(QStringLiteral("image/png"), QByteArray("not a text"));
  QGuiApplication::clipboard()->setMimeData(data.release());
  EXPECT_EQ(QtPasteboard().plainText(), std::nullopt);
}

TEST(FileAddress, EncodesEveryByteThatIsNotPlain) {
  EXPECT_EQ(fileAddress("/home/me/a b#c?d%e,ü.mp4"), "file:///home/me/a%20b%23c%3Fd%25e%2C%C3%BC.mp4");
  EXPECT_EQ(fileAddress("/tmp/\xff"), "file:///tmp/%FF");
}

class FileViewer : public QtTest {
 protected:
  PrivateBus bus;
  QStringList shown;
};

TEST_F(FileViewer, IsAskedToShowTheOneLocation) {
  QDBusConnection viewer = bus.connect();
  const QtDBusObject object(viewer, QStringLiteral("/org/freedesktop/FileManager1"),
                            {.interface = QStringLiteral("org.freedesktop.FileManager1"),
                             .description = QString(),
                             .properties = [] { return QVariantMap(); },
                             .call =
                                 [this](const QDBusMessage& call, const QDBusConnection& from) {
                                   if (call.member() != QLatin1String("ShowItems")) return false;
                                   shown = call.arguments()[0].toStringList();
                                   from.send(call.createReply());
                                   return true;
                                 }});
  viewer.registerService(QStringLiteral("org.freedesktop.FileManager1"));
  QtWorkspace workspace(bus.connect());
  workspace.reveal("/home/me/My clip.mp4");
  EXPECT_TRUE(shown.isEmpty());
  ASSERT_TRUE(runUntil([this] { return !shown.isEmpty(); }));
  EXPECT_EQ(shown, QStringList(QStringLiteral("file:///home/me/My%20clip.mp4")));
}

/// A world in which the desktop's tools are these scripts.
class FolderViewer : public QtTest {
 protected:
  FolderViewer() { qputenv("PATH", folder.path().toLocal8Bit() + ":/usr/bin:/bin"); }
  ~FolderViewer() override { qputenv("PATH", path); }

  void makeTool(const char* name, const QByteArray& body) {
    QFile tool(folder.filePath(QString::fromLatin1(name)));
    ASSERT_TRUE(tool.open(QIODevice::WriteOnly));
    tool.write("#!/bin/sh\n" + body);
    tool.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
  }
  static QMessageBox* notice() {
    for (QWidget* each : QApplication::topLevelWidgets()) {
      if (auto* box = qobject_cast<QMessageBox*>(each)) return box;
    }
    return nullptr;
  }

  QByteArray path = qgetenv("PATH");
  QTemporaryDir folder;
};

TEST_F(FolderViewer, ThatIsMissingIsMadeUpForByAWord) {
  makeTool("xdg-mime", "exit 0\n");
  QtWorkspace workspace(std::nullopt);
  workspace.reveal("/home/me/Library/Logs/<b>helper</b>.log");
  ASSERT_TRUE(runUntil([] { return notice() != nullptr; }));
  EXPECT_TRUE(notice()->isVisible());
  EXPECT_FALSE(notice()->isModal());
  EXPECT_EQ(notice()->text().toStdString(), "/home/me/Library/Logs/<b>helper</b>.log");
  EXPECT_EQ(notice()->textFormat(), Qt::PlainText);
}

}  // namespace
}  // namespace zunto::testing
