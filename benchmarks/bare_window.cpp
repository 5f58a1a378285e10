// The floor: a window of plain Qt widgets with the controls of the import form, and a tray icon. It does
// nothing; with --probing, it runs a command as often as the helper looks after its processor.
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPixmap>
#include <QProgressBar>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QVBoxLayout>
#include <initializer_list>

#include "benchmarks/bare_spawn.h"

namespace {

QHBoxLayout* row(QVBoxLayout& rows, std::initializer_list<QWidget*> widgets) {
  auto* line = new QHBoxLayout;
  for (QWidget* widget : widgets) line->addWidget(widget);
  rows.addLayout(line);
  return line;
}

QLabel* label(const char* text, double size = 0) {
  auto* made = new QLabel(QString::fromUtf8(text));
  if (size > 0) {
    QFont font = made->font();
    font.setPointSizeF(size);
    font.setBold(true);
    made->setFont(font);
  }
  made->setWordWrap(size == 0);
  return made;
}

QComboBox* popUp(std::initializer_list<const char*> titles) {
  auto* made = new QComboBox;
  for (const char* title : titles) made->addItem(QString::fromUtf8(title));
  return made;
}

QPushButton* button(const char* title) { return new QPushButton(QString::fromUtf8(title)); }

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  QWidget window;
  window.setWindowTitle(QStringLiteral("Bare window"));
  auto* rows = new QVBoxLayout(&window);
  rows->addWidget(label("Media Import", 20));
  rows->addWidget(label("Paste a link. Analyze available formats, then save video, audio, or a subtitle."));
  auto* field = new QLineEdit;
  field->setPlaceholderText(QStringLiteral("https://youtube.com/watch?v=… or https://bilibili.com/video/…"));
  row(*rows, {field, button("Paste"), button("Analyze")});
  auto* check = new QCheckBox(QStringLiteral("I own this media or have permission to download and use it."));
  check->setChecked(true);
  rows->addWidget(check);
  row(*rows,
      {label("Access:"), popUp({"Anonymous", "Chrome login", "Safari login"}), label("Cookies stay here.")});
  auto* line = new QFrame;
  line->setFrameShape(QFrame::HLine);
  rows->addWidget(line);
  rows->addWidget(label("Paste a link to begin.", 13));
  rows->addWidget(label("Processing stays here."));
  row(*rows, {label("Save as:"), popUp({"Video", "Audio only", "Source subtitle"}), popUp({"Analyze first"}),
              popUp({"No subtitle tracks"}), popUp({"VTT", "SRT"})});
  rows->addWidget(new QProgressBar);
  rows->addWidget(label("Ready."));
  row(*rows, {button("Download…"), button("Cancel"), button("Show Downloaded File")});
  window.resize(680, 520);

  QPixmap picture(22, 22);
  picture.fill(Qt::darkGray);
  QMenu menu;
  for (const char* title : {"Ready", "Open", "Stop", "Log", "Quit"}) menu.addAction(QString::fromUtf8(title));
  QSystemTrayIcon tray{QIcon(picture)};
  tray.setContextMenu(&menu);
  tray.show();
  window.show();

  constexpr int probingMilliseconds = 5000;
  QTimer probing;
  QObject::connect(&probing, &QTimer::timeout, [] {
    spawnBare("/usr/bin/curl", {"--fail", "--silent", "--max-time", "1", "http://127.0.0.1:43127/health"});
  });
  if (QCoreApplication::arguments().contains(QStringLiteral("--probing"))) probing.start(probingMilliseconds);
  return QApplication::exec();
}
