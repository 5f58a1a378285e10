#include <gtest/gtest.h>

#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QWindow>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/qt/qt_window_system.h"
#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

/// A small form with a row of each kind.
struct SampleForm {
  Label heading{"Sample", {.font = {.size = 26, .weight = FontWeight::bold}}};
  TextField link{"placeholder"};
  PushButton paste{"Paste"};
  PushButton analyze{"Analyze", KeyEquivalent::returnKey};
  CheckBox permission{"Permission", true};
  PopUpButton mode{{"Video", "Audio"}};
  PushButton cancel{"Cancel"};
  Label status{"Ready", {.wraps = true, .maximumLines = 2}};

  WindowSpec describe() {
    using std::ref;
    const auto row =
        std::make_shared<const Stack>(Stack{.orientation = Orientation::horizontal,
                                            .alignment = StackAlignment::center,
                                            .spacing = 10,
                                            .items = {{ref(link)}, {ref(paste)}, {ref(analyze)}}});
    Stack content{.spacing = 16,
                  .items = {{ref(heading)},
                            {row, ElementWidth::stack},
                            {ref(permission)},
                            {Separator(), ElementWidth::stack},
                            {ref(mode)},
                            {ref(cancel)},
                            {ref(status)}}};
    return {.title = "Sample Window",
            .contentSize = {680, 520},
            .minimumSize = {600, 470},
            .insets = {.leading = 28, .trailing = 28, .top = 26, .minimumBottom = 24},
            .content = std::move(content),
            .dropField = &link};
  }
};

class QtWindows : public QtTest {
 protected:
  void show() {
    model.show();
    model.center();
    native = topWindow();
    ASSERT_NE(native, nullptr);
    runTurns();
  }
  template <class Native>
  Native& child(const char* text) {
    for (Native* each : native->findChildren<Native*>()) {
      if (each->text() == QLatin1String(text)) return *each;
    }
    throw std::runtime_error(text);
  }
  QLineEdit& field() { return *native->findChild<QLineEdit*>(); }
  QMenuBar& menuBar() { return *native->findChild<QMenuBar*>(); }

  std::shared_ptr<StatusItem> giveStatusMenu() {
    auto item = std::make_shared<StatusItem>();
    item->setButtonTitle("Z/UNTO");
    auto menu = std::make_shared<Menu>();
    menu->addItem(first);
    menu->addItem(MenuItem::separator());
    menu->addItem(std::make_shared<MenuItem>(
        "Open Downloader", [this] { ++opened; }, 'd'));
    item->setMenu(menu);
    statusMenu.setItem(item);
    return item;
  }

  SampleForm form;
  QtStatusMenu statusMenu;
  QtWindowSystem windows{statusMenu};
  Window model{form.describe()};
  std::unique_ptr<WindowView> view = windows.makeView(model);
  QWidget* native = nullptr;
  std::shared_ptr<MenuItem> first = std::make_shared<MenuItem>("Starting…");
  int opened = 0;
};

TEST_F(QtWindows, IsNotShownBeforeItIsAskedFor) {
  ASSERT_NE(topWindow(), nullptr);
  EXPECT_FALSE(topWindow()->isVisible());
}

TEST_F(QtWindows, ShowsTheGivenContentSizeTitleAndMinimum) {
  show();
  EXPECT_TRUE(native->isVisible());
  EXPECT_EQ(native->size(), QSize(680, 520));
  EXPECT_EQ(native->minimumSize(), QSize(600, 470));
  EXPECT_EQ(native->windowTitle().toStdString(), "Sample Window");
}

TEST_F(QtWindows, IsAWindowForScreenReaders) {
  show();
  EXPECT_EQ(QAccessible::queryAccessibleInterface(native)->role(), QAccessible::Window);
  EXPECT_EQ(QAccessible::queryAccessibleInterface(native)->text(QAccessible::Name).toStdString(),
            "Sample Window");
}

TEST_F(QtWindows, ClosingHidesTellsTheModelAndEndsNothing) {
  show();
  int closings = 0;
  model.setWillClose([&closings] { ++closings; });
  EXPECT_TRUE(native->close());
  runTurns();
  EXPECT_EQ(closings, 1);
  EXPECT_FALSE(native->isVisible());
  EXPECT_FALSE(model.isVisible());
  model.show();
  EXPECT_TRUE(native->isVisible());
}

TEST_F(QtWindows, ShowingAgainBringsAMinimizedWindowBack) {
  show();
  native->showMinimized();
  model.show();
  EXPECT_FALSE(native->isMinimized());
  EXPECT_TRUE(native->isVisible());
}

/// How often a widget was hidden.
class Hidings final : public QObject {
 public:
  explicit Hidings(QWidget& widget) { widget.installEventFilter(this); }
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Hide) ++count;
    return false;
  }
  int count = 0;
};

TEST_F(QtWindows, ComesForwardUnderWaylandAsANewWindowUnlessItMayOrIsThere) {
  view.reset();
  QtWindowSystem underWayland(statusMenu, std::nullopt, QtDisplay::wayland);
  view = underWayland.makeView(model);
  show();
  ASSERT_TRUE(runUntil([this] { return native->isActiveWindow(); }));
  const Hidings hidings(*native);
  model.show();
  EXPECT_EQ(hidings.count, 0);

  QWidget other;
  other.show();
  other.activateWindow();
  ASSERT_TRUE(runUntil([&other] { return other.isActiveWindow(); }));
  qputenv("XDG_ACTIVATION_TOKEN", "given");
  model.show();
  EXPECT_EQ(hidings.count, 0);
  qunsetenv("XDG_ACTIVATION_TOKEN");

  other.activateWindow();
  ASSERT_TRUE(runUntil([&other] { return other.isActiveWindow(); }));
  model.show();
  EXPECT_EQ(hidings.count, 1);
  EXPECT_TRUE(native->isVisible());
  EXPECT_TRUE(model.isVisible());
}

TEST_F(QtWindows, ComesForwardAsANewWindowWhereItsPermissionIsOfNoUse) {
  view.reset();
  QtWindowSystem underWayland(statusMenu, std::nullopt, QtDisplay::wayland);
  view = underWayland.makeView(model);
  show();
  ASSERT_TRUE(runUntil([this] { return native->isActiveWindow(); }));
  const Hidings hidings(*native);
  QWidget other;
  other.show();
  other.activateWindow();
  ASSERT_TRUE(runUntil([&other] { return other.isActiveWindow(); }));
  native->windowHandle()->setFlag(Qt::WindowDoesNotAcceptFocus);  // Qt asks for nothing then
  qputenv("XDG_ACTIVATION_TOKEN", "used up");
  model.show();
  qunsetenv("XDG_ACTIVATION_TOKEN");
  EXPECT_EQ(hidings.count, 0);
  EXPECT_TRUE(runUntil([&hidings] { return hidings.count == 1; }));
  EXPECT_TRUE(native->isVisible());
}

TEST_F(QtWindows, ItsContentStandsInTheMiddleOfTheScreenHoweverOftenItIsCentered) {
  show();
  const QRect area = native->screen()->availableGeometry();
  const QRect place = native->geometry();
  EXPECT_LE(std::abs(place.center().x() - area.center().x()), 1);
  EXPECT_LE(std::abs(place.center().y() - area.center().y()), 1);
  model.show();
  model.center();
  runTurns();
  EXPECT_EQ(native->geometry(), place);
}

TEST_F(QtWindows, StaysInTheMiddleWhenItsMenuBarComesUnlessTheUserHasMovedIt) {
  const auto item = giveStatusMenu();
  statusMenu.setHost(QtStatusMenu::Host::unknown);
  show();
  statusMenu.setHost(QtStatusMenu::Host::none);
  const QRect area = native->screen()->availableGeometry();
  EXPECT_LE(std::abs(native->geometry().center().y() - area.center().y()), 1);
  native->move(10, 20);
  const QPoint place = native->geometry().topLeft();
  statusMenu.setHost(QtStatusMenu::Host::shows);
  EXPECT_EQ(native->geometry().topLeft(), place);
}

TEST_F(QtWindows, LeavesRoomForItsFrameOnALowScreen) {
  show();
  const QRect area = native->screen()->availableGeometry();
  native->resize(680, area.height() - 50);
  model.center();
  EXPECT_EQ(native->geometry().top(), area.top() + 40);
  native->resize(area.size());
  model.center();
  EXPECT_TRUE(area.contains(native->frameGeometry()));
  EXPECT_EQ(native->geometry().top(), area.top() + 40);
}

TEST_F(QtWindows, ScrollsWhatDoesNotFitAndShowsTheControlThatTabReaches) {
  show();
  const auto& area = *native->findChild<QScrollArea*>();
  EXPECT_FALSE(area.verticalScrollBar()->isVisible());
  EXPECT_FALSE(area.horizontalScrollBar()->isVisible());
  native->windowHandle()->resize(400, 200);  // a tile takes no notice of what a window needs
  runTurns();
  EXPECT_TRUE(area.verticalScrollBar()->isVisible());
  EXPECT_EQ(area.width(), 400);
  QPushButton& cancel = child<QPushButton>("Cancel");
  const auto isInSight = [&] {
    const QRect place(cancel.mapTo(area.viewport(), QPoint()), cancel.size());
    return area.viewport()->rect().contains(place);
  };
  EXPECT_FALSE(isInSight());
  QWidget* before = native->findChild<QComboBox*>();
  before->setFocus();
  press(*before, Qt::Key_Tab);
  EXPECT_EQ(native->focusWidget(), &cancel);
  EXPECT_TRUE(isInSight());
}

TEST_F(QtWindows, FitsIntoAnyTileThatACompositorGivesIt) {
  view.reset();
  QtWindowSystem underWayland(statusMenu, std::nullopt, QtDisplay::wayland);
  view = underWayland.makeView(model);
  const auto item = giveStatusMenu();
  show();
  EXPECT_TRUE(menuBar().isVisible());
  native->resize(200, 150);  // no larger than the window allows, as Qt keeps a tile, too
  runTurns();
  EXPECT_EQ(native->size(), QSize(200, 150));
  EXPECT_TRUE(native->findChild<QScrollArea*>()->verticalScrollBar()->isVisible());
}

TEST_F(QtWindows, StaysMaximizedWhenItIsCentered) {
  show();
  native->showMaximized();
  runTurns();
  const QRect before = native->geometry();
  model.center();
  runTurns();
  EXPECT_EQ(native->geometry(), before);
}

TEST_F(QtWindows, EndsWithItsView) {
  show();
  view.reset();
  EXPECT_EQ(topWindow(), nullptr);
  form.status.setText("nobody looks");
}

TEST_F(QtWindows, RowsStandInOrderAtTheGivenDistances) {
  show();
  const QRect heading = child<QLabel>("Sample").geometry();
  EXPECT_EQ(heading.topLeft(), QPoint(28, 26));
  EXPECT_EQ(field().x(), 28);
  EXPECT_EQ(child<QPushButton>("Analyze").geometry().right(), 680 - 28 - 1);
  EXPECT_EQ(child<QPushButton>("Paste").x(), field().geometry().right() + 1 + 10);
  EXPECT_GE(field().y(), heading.bottom() + 1 + 16);
  const QCheckBox& permission = child<QCheckBox>("Permission");
  EXPECT_EQ(permission.x(), 28);
  EXPECT_GT(permission.y(), field().geometry().bottom());
}

TEST_F(QtWindows, FieldTakesTheSpareWidth) {
  show();
  const int before = field().width();
  const int button = child<QPushButton>("Paste").width();
  native->resize(900, 520);
  runTurns();
  EXPECT_EQ(field().width(), before + 220);
  EXPECT_EQ(child<QPushButton>("Paste").width(), button);
}

TEST_F(QtWindows, HiddenControlTakesNeitherRoomNorSpacing) {
  show();
  const QPushButton& cancel = child<QPushButton>("Cancel");
  const int with = child<QLabel>("Ready").y();
  form.cancel.setHidden(true);
  runTurns();
  EXPECT_EQ(child<QLabel>("Ready").y(), with - cancel.height() - 16);
}

TEST_F(QtWindows, ReturnPressesTheDefaultButtonFromEveryOtherControl) {
  show();
  int analyses = 0;
  form.analyze.setAction([&analyses] { ++analyses; });
  press(field(), Qt::Key_Return);
  EXPECT_EQ(analyses, 1);
  press(*native->findChild<QComboBox*>(), Qt::Key_Return, Qt::NoModifier, QStringLiteral("\r"));
  EXPECT_EQ(analyses, 2);
  press(child<QCheckBox>("Permission"), Qt::Key_Enter, Qt::KeypadModifier);
  EXPECT_EQ(analyses, 3);
  EXPECT_TRUE(form.permission.isOn());
}

TEST_F(QtWindows, ReturnOnAnotherButtonPressesThatOne) {
  show();
  int analyses = 0;
  int pastes = 0;
  form.analyze.setAction([&analyses] { ++analyses; });
  form.paste.setAction([&pastes] { ++pastes; });
  press(child<QPushButton>("Paste"), Qt::Key_Return);
  EXPECT_EQ(pastes, 1);
  EXPECT_EQ(analyses, 0);
}

TEST_F(QtWindows, ReturnDoesNothingWhileTheDefaultButtonIsDisabled) {
  show();
  int analyses = 0;
  form.analyze.setAction([&analyses] { ++analyses; });
  form.analyze.setEnabled(false);
  press(field(), Qt::Key_Return);
  EXPECT_EQ(analyses, 0);
}

TEST_F(QtWindows, TabFollowsTheReadingOrder) {
  show();
  std::vector<std::string> order;
  for (QWidget* each = native->focusWidget(); order.size() < 6 && each != nullptr;) {
    order.emplace_back(each->metaObject()->className());
    press(*each, Qt::Key_Tab);
    each = native->focusWidget();
  }
  EXPECT_EQ(order, (std::vector<std::string>{"QLineEdit", "QPushButton", "QPushButton", "QCheckBox",
                                             "QComboBox", "QPushButton"}));
}

TEST_F(QtWindows, MenuStandsInTheWindowWhileTheDesktopDoesNotShowIt) {
  const auto item = giveStatusMenu();
  show();
  ASSERT_TRUE(menuBar().isVisible());
  ASSERT_EQ(menuBar().actions().size(), 1);
  EXPECT_EQ(menuBar().actions()[0]->text().toStdString(), "Z/UNTO");
  item->setButtonTitle("Z/UNTO ●");
  EXPECT_EQ(fromQString(menuBar().actions()[0]->text()), "Z/UNTO ●");
  const QMenu* menu = menuBar().actions()[0]->menu();
  ASSERT_EQ(menu->actions().size(), 3);
  first->setTitle("Ready & well");
  first->setEnabled(false);
  EXPECT_EQ(menu->actions()[0]->text().toStdString(), "Ready && well");
  EXPECT_FALSE(menu->actions()[0]->isEnabled());
  EXPECT_TRUE(menu->actions()[1]->isSeparator());
  menu->actions()[2]->trigger();
  EXPECT_EQ(opened, 1);
  statusMenu.setHost(QtStatusMenu::Host::shows);
  EXPECT_FALSE(menuBar().isVisible());
  statusMenu.setHost(QtStatusMenu::Host::none);
  EXPECT_TRUE(menuBar().isVisible());
}

TEST_F(QtWindows, ContentKeepsItsSizeWhenTheMenuBarComesAndGoes) {
  const auto item = giveStatusMenu();
  show();
  EXPECT_EQ(native->size(), QSize(680, 520 + menuBar().height()));
  statusMenu.setHost(QtStatusMenu::Host::shows);
  runTurns();
  EXPECT_EQ(native->size(), QSize(680, 520));
  EXPECT_EQ(native->minimumSize(), QSize(600, 470));
  statusMenu.setHost(QtStatusMenu::Host::none);
  runTurns();
  EXPECT_EQ(native->size(), QSize(680, 520 + menuBar().height()));
}

TEST_F(QtWindows, NoMenuBarStandsThereWithoutAStatusItem) {
  show();
  EXPECT_EQ(native->findChild<QMenuBar*>(), nullptr);
}

TEST_F(QtWindows, NoMenuBarFlashesBeforeTheDesktopHasSaidThatItShowsTheMenu) {
  statusMenu.setHost(QtStatusMenu::Host::unknown);
  const auto item = giveStatusMenu();
  show();
  EXPECT_EQ(native->findChild<QMenuBar*>(), nullptr);
  EXPECT_EQ(native->size(), QSize(680, 520));
  statusMenu.setHost(QtStatusMenu::Host::shows);
  runTurns();
  EXPECT_EQ(native->findChild<QMenuBar*>(), nullptr);
  statusMenu.setHost(QtStatusMenu::Host::none);
  EXPECT_TRUE(menuBar().isVisible());
}

TEST_F(QtWindows, TheMenusKeysAreTheWindowsWithAndWithoutItsMenuBar) {
  const auto item = giveStatusMenu();
  show();
  for (const auto host : {QtStatusMenu::Host::none, QtStatusMenu::Host::shows}) {
    statusMenu.setHost(host);
    ASSERT_EQ(native->actions().size(), 3);
    EXPECT_EQ(native->actions()[2]->shortcut().toString().toStdString(), "Ctrl+D");
    EXPECT_EQ(native->actions()[2]->shortcutContext(), Qt::WindowShortcut);
    // The field must leave the key to the window.
    QKeyEvent claim(QEvent::ShortcutOverride, Qt::Key_D, Qt::ControlModifier);
    claim.ignore();
    QApplication::sendEvent(&field(), &claim);
    EXPECT_FALSE(claim.isAccepted());
  }
}

class Drops : public QtWindows {
 protected:
  static std::unique_ptr<QMimeData> text(const char* content) {
    auto data = std::make_unique<QMimeData>();
    data->setText(QString::fromUtf8(content));
    return data;
  }
  static std::unique_ptr<QMimeData> addresses(const char* list) {
    auto data = std::make_unique<QMimeData>();
    data->setData(QStringLiteral("text/uri-list"), QByteArray(list));
    return data;
  }
  /// Drops over a control as Qt does: on the nearest widget around it that takes drops at all. Answers what
  /// became of it; none where nobody takes it.
  static std::optional<Qt::DropAction> drop(QWidget& over, const QMimeData& data,
                                            Qt::DropActions offered = Qt::CopyAction | Qt::MoveAction) {
    QWidget* target = &over;
    while (target != nullptr && !target->acceptDrops()) target = target->parentWidget();
    if (target == nullptr) return std::nullopt;
    QDragEnterEvent enter({5, 5}, offered, &data, Qt::LeftButton, Qt::NoModifier);
    enter.ignore();
    QApplication::sendEvent(target, &enter);
    if (!enter.isAccepted()) return std::nullopt;
    QDropEvent event({5, 5}, offered, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &event);
    return event.dropAction();
  }
};

TEST_F(Drops, AnywhereOnTheWindowReplaceTheLink) {
  show();
  form.link.setText("https://media.example/first");
  EXPECT_EQ(drop(field(), *text("https://media.example/second")), Qt::CopyAction);
  EXPECT_EQ(form.link.text(), "https://media.example/second");
  EXPECT_EQ(drop(child<QLabel>("Sample"), *text("  https://media.example/third\nand more")), Qt::CopyAction);
  EXPECT_EQ(form.link.text(), "https://media.example/third");
  EXPECT_EQ(drop(*native, *text("https://media.example/fourth"), Qt::LinkAction), Qt::LinkAction);
  EXPECT_EQ(field().text().toStdString(), "https://media.example/fourth");
}

TEST_F(Drops, OfAListOfAddressesGiveTheFirst) {
  show();
  const auto list =
      addresses("# from a browser\r\nhttps://media.example/watch?v=a%20b&t=1\r\nhttps://other.example\r\n");
  EXPECT_EQ(drop(field(), *list), Qt::CopyAction);
  EXPECT_EQ(form.link.text(), "https://media.example/watch?v=a%20b&t=1");
}

TEST_F(Drops, AreRefusedWithoutATextAndWhileTheFieldIsDisabled) {
  show();
  form.link.setText("https://media.example/first");
  QMimeData picture;
  picture.setData(QStringLiteral("image/png"), QByteArray("not a text"));
  EXPECT_EQ(drop(field(), picture), std::nullopt);
  EXPECT_EQ(drop(field(), *text("taken away"), Qt::MoveAction), std::nullopt);
  form.link.setEnabled(false);
  EXPECT_EQ(drop(*native, *text("https://media.example/second")), std::nullopt);
  EXPECT_EQ(form.link.text(), "https://media.example/first");
}

TEST_F(QtWindows, LongTextsNeverMakeTheWindowWider) {
  show();
  form.status.setText(std::string(400, 'x'));
  form.mode.setItems({"Video", std::string(400, 'm')}, 1);
  runTurns();
  EXPECT_EQ(native->size(), QSize(680, 520));
  EXPECT_EQ(native->minimumWidth(), 600);
}

}  // namespace
}  // namespace zunto::testing
