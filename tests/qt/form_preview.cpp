// Shows the import form with made-up content, to look at: form_preview [fresh|subtitle|long|failed] [dark]
// [rtl] [menu] [small]
#include <QApplication>
#include <QPalette>
#include <QWidget>
#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include "import/import_form.h"
#include "platform/qt/qt_application.h"
#include "platform/qt/qt_clock.h"
#include "platform/qt/qt_dialogs.h"
#include "platform/qt/qt_status_menu.h"
#include "platform/qt/qt_window_system.h"

namespace {

QPalette darkPalette() {
  QPalette palette;
  const QColor window(0x2a, 0x2a, 0x2e);
  const QColor text(0xee, 0xee, 0xee);
  palette.setColor(QPalette::Window, window);
  palette.setColor(QPalette::WindowText, text);
  palette.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x22));
  palette.setColor(QPalette::AlternateBase, window);
  palette.setColor(QPalette::Text, text);
  palette.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x40));
  palette.setColor(QPalette::ButtonText, text);
  palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9a, 0x9a));
  palette.setColor(QPalette::Highlight, QColor(0x3d, 0x7e, 0xff));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    palette.setColor(QPalette::Disabled, role, QColor(0x80, 0x80, 0x80));
  }
  return palette;
}

void fill(zunto::ImportForm& form) {
  form.urlField.setText("https://media.example/watch?v=abcdefgh");
  form.titleLabel.setText("A walk along the river in the early morning");
  form.detailLabel.setText("Duration: 12:34");
  form.qualityPopup.setItems({"1080p", "720p", "480p"});
  form.subtitlePopup.setItems({"English", "English"});
  form.progress.setValue(42.5);
  form.statusLabel.setText("Downloading video… 42%");
  form.startButton.setEnabled(true);
  form.cancelButton.setHidden(false);
  form.revealButton.setHidden(false);
}

void showSubtitles(zunto::ImportForm& form) {
  form.modePopup.selectIndex(2);
  form.qualityPopup.setHidden(true);
  form.subtitlePopup.setHidden(false);
  form.subtitleFormatPopup.setHidden(false);
}

void makeLong(zunto::ImportForm& form) {
  form.titleLabel.setText(
      "A very long title that nobody could ever read in one go because it goes on and on and on, "
      "<b>really</b>");
  form.statusLabel.setText(
      "Saved to /home/somebody/Downloads/a-folder-with-a-rather-long-name/another-folder-with-a-long-name/"
      "and-one-more-for-good-measure/A very long title that nobody could ever read in one go.mp4");
  form.subtitlePopup.setItems({"Chinese (Simplified, automatically generated from English)"});
}

struct QtClockAndDialogs {
  zunto::QtClock clock;
  zunto::QtDialogs dialogs{clock};
};

}  // namespace

int main(int argc, char** argv) {
  zunto::QtApplication application(argc, argv);
  zunto::ImportForm form;
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  const auto isWished = [&arguments](std::string_view wish) {
    return std::find(arguments.begin(), arguments.end(), wish) != arguments.end();
  };
  if (isWished("dark")) QApplication::setPalette(darkPalette());
  if (isWished("rtl")) QApplication::setLayoutDirection(Qt::RightToLeft);
  if (!isWished("fresh")) fill(form);
  if (isWished("subtitle") || isWished("long")) showSubtitles(form);
  if (isWished("long")) makeLong(form);
  if (isWished("failed")) {
    form.statusLabel.setText("This video is not available in your country.");
    form.statusLabel.setProblem(true);
  }
  zunto::QtStatusMenu statusMenu;
  const auto item = std::make_shared<zunto::StatusItem>();
  item->setButtonTitle("Z/UNTO ●");
  auto menu = std::make_shared<zunto::Menu>();
  menu->addItem(std::make_shared<zunto::MenuItem>(
      "Open Downloader", [] {}, 'd'));
  item->setMenu(menu);
  if (isWished("menu")) statusMenu.setItem(item);
  zunto::QtWindowSystem windows(statusMenu);
  zunto::Window window(form.describeWindow());
  const auto view = windows.makeView(window);
  window.show();
  for (QWidget* each : QApplication::topLevelWidgets()) {
    if (isWished("small") && each->windowType() == Qt::Window) each->resize(each->minimumSize());
  }
  window.center();
  QtClockAndDialogs shown;
  if (isWished("alert")) {
    shown.dialogs.showAlert(
        {"ZUNTO Helper could not start",
         "Port 43127 may already be in use, or a bundled component could not run. Open the "
         "local log for details.",
         {"OK", "Show Log"}},
        [](std::size_t) {});
  }
  if (isWished("save")) {
    shown.dialogs.showSavePanel({"Save ZUNTO Download", "A walk along the river.mp4"}, [](const auto&) {});
  }
  application.run();
  return 0;
}
