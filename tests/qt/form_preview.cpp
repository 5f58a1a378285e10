// Shows the import form with made-up content, to look at:
// form_preview [empty|analyzed|working|failed|finished] [subtitle] [long] [dark] [contrast] [points=N] [rtl]
// [menu] [small] [alert] [save]
#include <QApplication>
#include <QFont>
#include <QWidget>
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "import/import_form.h"
#include "platform/qt/qt_application.h"
#include "platform/qt/qt_clock.h"
#include "platform/qt/qt_color_scheme.h"
#include "platform/qt/qt_dialogs.h"
#include "platform/qt/qt_status_menu.h"
#include "platform/qt/qt_window_system.h"
#include "tests/qt/form_states.h"
#include "tests/qt/private_bus.h"
#include "tests/qt/settings_portal.h"

namespace {

void setPoints(int points) {
  QFont font = QApplication::font();
  font.setPointSize(points);
  QApplication::setFont(font);
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
  if (isWished("rtl")) QApplication::setLayoutDirection(Qt::RightToLeft);
  for (const std::string_view argument : arguments) {
    if (argument.starts_with("points=")) setPoints(std::stoi(std::string(argument.substr(7))));
  }
  zunto::testing::PrivateBus bus;
  zunto::testing::SettingsPortal portal(bus.connect());
  if (isWished("dark")) portal.setScheme(zunto::testing::SettingsPortal::preferDark);
  if (isWished("contrast")) portal.set("org.freedesktop.appearance", "contrast", 1U);
  const zunto::QtColorScheme colorScheme(bus.connect());
  for (const zunto::testing::FormState state : zunto::testing::allFormStates) {
    if (isWished(nameOf(state))) show(form, state);
  }
  if (isWished("subtitle")) zunto::testing::chooseSubtitles(form);
  if (isWished("long")) zunto::testing::fillToTheBrim(form);
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
