#include "platform/qt/qt_window_system.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QAction>
#include <QApplication>
#include <QBoxLayout>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <QWidget>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <optional>
#include <utility>

#include "platform/qt/qt_activation.h"
#include "platform/qt/qt_controls.h"
#include "platform/qt/qt_dropped_text.h"
#include "platform/qt/qt_menu_actions.h"
#include "platform/qt/qt_stack_layout.h"
#include "platform/qt/qt_task_progress.h"
#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

QSize nativeSize(const Size& size) {
  return {static_cast<int>(std::lround(size.width)), static_cast<int>(std::lround(size.height))};
}

/// The window's controls.
class ContentWidget final : public QWidget {
 public:
  ContentWidget(const WindowSpec& spec, QtFocusKeeper& focus) {
    QtControlMaker maker(*this, focus);
    std::unique_ptr<QBoxLayout> layout = makeStackLayout(spec.content, maker, column_);
    layout->setContentsMargins(static_cast<int>(std::lround(spec.insets.leading)),
                               static_cast<int>(std::lround(spec.insets.top)),
                               static_cast<int>(std::lround(spec.insets.trailing)),
                               static_cast<int>(std::lround(spec.insets.minimumBottom)));
    layout->addStretch(1);
    setLayout(layout.release());
    column_.align();
  }

  /// What the controls need in this width, in which text may wrap to more lines.
  [[nodiscard]] QSize needed(int width) const {
    const QSize smallest = layout()->totalMinimumSize();
    const int wrapped = layout()->totalMinimumHeightForWidth(std::max(smallest.width(), width));
    return smallest.expandedTo({0, wrapped});
  }

  [[nodiscard]] bool hasHeightForWidth() const override { return true; }
  /// A scroll area takes this for the least height.
  [[nodiscard]] int heightForWidth(int width) const override { return needed(width).height(); }

 protected:
  bool event(QEvent* event) override {
    // Another font makes the labels of the column wider, each by as much as its text is long.
    if (event->type() == QEvent::LayoutRequest) column_.align();
    return QWidget::event(event);
  }

 private:
  QtColumn column_;
};

/// Shows the content, all of it where there is room, else a part that can be scrolled.
class ContentArea final : public QScrollArea {
 public:
  ContentArea(std::unique_ptr<ContentWidget> content, QWidget* parent)
      : QScrollArea(parent), content_(content.get()) {
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::NoFocus);
    setWidgetResizable(true);
    setWidget(content.release());
    // The window's own background shows through.
    content_->setAutoFillBackground(false);
    viewport()->setAutoFillBackground(false);
  }

  [[nodiscard]] QSize needed(int width) const { return content_->needed(width); }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    // The window wants to know when the content needs another size; Qt ends that news here.
    if (event->type() == QEvent::LayoutRequest) updateGeometry();
    return QScrollArea::eventFilter(watched, event);
  }

 private:
  ContentWidget* content_;  ///< a child of the viewport
};

/// The status menu in one window: its keys always, its menu bar while the desktop does not show the menu.
class WindowStatusMenu {
 public:
  /// `grow` makes the window so much higher, or lower.
  WindowStatusMenu(QtStatusMenu& statusMenu, QWidget& window, std::function<void(int)> grow)
      : statusMenu_(statusMenu), window_(window), grow_(std::move(grow)) {
    menu_.menuAction()->setMenuRole(QAction::NoRole);
    changes_ = statusMenu_.observe([this] { mirror(); });
    mirror();
  }

 private:
  void mirror() {
    const std::shared_ptr<StatusItem> item = statusMenu_.item();
    if (item != item_.lock()) {
      itemChanges_ = item ? item->observe([this] { mirrorItem(); }) : Observable::Subscription();
      item_ = item;
    }
    mirrorItem();
  }

  void mirrorItem() {
    const std::shared_ptr<StatusItem> item = item_.lock();
    const std::shared_ptr<const Menu> shown = item ? item->menu() : nullptr;
    if (shown != shown_) {
      shown_ = shown;
      actions_.emplace(shown);
      // The window holds them too: a hidden menu bar's keys do not work.
      menu_.addActions(actions_->actions());
      window_.addActions(actions_->actions());
    }
    menu_.setTitle(item ? withoutMnemonic(item->buttonTitle()) : QString());
    menu_.setAccessibleName(menu_.title());
    showBar(shown && statusMenu_.host() == QtStatusMenu::Host::none);
  }

  /// Made when a desktop first needs it: with a tray it never does, and its pictures bring Qt's image
  /// readers.
  void makeBar() {
    auto bar = std::make_unique<QMenuBar>(&window_);
    bar->addMenu(&menu_);
    bar->hide();
    bar_ = bar.get();
    window_.layout()->setMenuBar(bar.release());
  }

  /// The bar comes on top of the content, which keeps its size.
  void showBar(bool isShown) {
    const bool wasShown = bar_ != nullptr && !bar_->isHidden();
    if (isShown == wasShown) return;
    if (bar_ == nullptr) makeBar();
    const int change = (isShown ? 1 : -1) * bar_->sizeHint().height();
    bar_->setVisible(isShown);
    grow_(change);
  }

  QtStatusMenu& statusMenu_;
  QWidget& window_;
  std::function<void(int)> grow_;
  QMenuBar* bar_ = nullptr;  ///< a child of the window; null until it is first shown
  QMenu menu_;
  std::weak_ptr<StatusItem> item_;
  std::shared_ptr<const Menu> shown_;
  std::optional<QtMenuActions> actions_;
  Observable::Subscription changes_;
  Observable::Subscription itemChanges_;
};

/// How long a compositor may take to bring a window forward that has the permission to come.
constexpr std::chrono::milliseconds patienceWithPermission(1000);

class NativeWindow final : public QWidget {
 public:
  NativeWindow(Window& model, QtStatusMenu& statusMenu, QtDisplay display)
      : QWidget(nullptr, Qt::Window), model_(model), display_(display) {
    setWindowTitle(toQString(model.spec().title));
    auto content = std::make_unique<ContentArea>(std::make_unique<ContentWidget>(model.spec(), focus_), this);
    content_ = content.get();
    auto layout = std::make_unique<QVBoxLayout>();
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->setSizeConstraint(QLayout::SetNoConstraint);
    layout->addWidget(content.release());
    setLayout(layout.release());
    updateMinimumSize();
    QSize wanted = nativeSize(model.spec().contentSize);
    wanted.rwidth() = static_cast<int>(std::lround(wanted.width() * scaleOf(font())));
    resize(onScreen(wanted.expandedTo(content_->needed(wanted.width()))));
    statusMenu_.emplace(statusMenu, *this, [this](int change) { growBy(change); });
    if (model.spec().dropField != nullptr) {
      setAcceptDrops(true);
      // Else a second link would land inside the first one.
      for (QLineEdit* field : findChildren<QLineEdit*>()) field->setAcceptDrops(false);
    }
    // The keyboard starts at the first control.
    focusNextChild();
    refusal_.setSingleShot(true);
    refusal_.setInterval(patienceWithPermission);
    QObject::connect(&refusal_, &QTimer::timeout, this, [this] {
      if (mustBeNewToComeForward()) present();
    });
  }

  void present() {
    setWindowState(windowState() & ~Qt::WindowMinimized);
    if (mustBeNewToComeForward()) hide();
    // A permission may have been used up, and nobody tells of a refusal.
    if (isVisible() && display_ == QtDisplay::wayland && QtActivation::isGranted()) refusal_.start();
    show();
    raise();
    activateWindow();
  }

  /// By the content: how large the frame is turns out only when the desktop has drawn it, and the window
  /// would jump when it is centred again. A frame that is larger than frames are is made room for as soon as
  /// it is known.
  void center() {
    if (isMaximized() || isFullScreen()) return;
    const QRect area = screen()->availableGeometry();
    const QRect usable = usableArea();
    QRect place(QPoint(), size().boundedTo(usable.size()));
    place.moveCenter(area.center());
    place.moveTo(std::clamp(place.left(), usable.left(), usable.right() + 1 - place.width()),
                 std::clamp(place.top(), usable.top(), usable.bottom() + 1 - place.height()));
    centeredAt_ = place;
    setGeometry(place);
  }

 protected:
  void dragEnterEvent(QDragEnterEvent* event) override { considerDrop(*event); }

  void dropEvent(QDropEvent* event) override {
    const std::optional<QString> text = considerDrop(*event);
    if (text) model_.spec().dropField->userEdited(fromQString(*text));
  }

  void closeEvent(QCloseEvent* event) override {
    model_.userClosed();
    event->accept();
  }

  void keyPressEvent(QKeyEvent* event) override {
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    const bool isPlain = (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier;
    if (isReturn && isPlain && !event->isAutoRepeat()) {
      pressDefaultButton();
    } else {
      QWidget::keyPressEvent(event);
    }
  }

  bool event(QEvent* event) override {
    const bool answer = QWidget::event(event);
    if (event->type() == QEvent::WindowActivate) refusal_.stop();
    if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::Resize) updateMinimumSize();
    if (event->type() == QEvent::Move || event->type() == QEvent::WindowActivate) makeRoomForFrame();
    return answer;
  }

 private:
  /// A compositor lets no window come forward without its permission, but shows a new one where the user
  /// looks.
  [[nodiscard]] bool mustBeNewToComeForward() const {
    // A dialog would lose the window that it stands over.
    const bool hasDialog = QApplication::activeModalWidget() != nullptr;
    return display_ == QtDisplay::wayland && isVisible() && !isActiveWindow() && !hasDialog &&
           !QtActivation::isGranted();
  }

  /// What would stand in the field, where the drop is accepted. What is dragged out of the window itself,
  /// such as a part of the link, is not meant for it.
  std::optional<QString> considerDrop(QDropEvent& event) const {
    const auto* source = qobject_cast<const QWidget*>(event.source());
    const bool isOwn = source != nullptr && source->window() == this;
    if (isOwn || !model_.spec().dropField->isEnabled()) return std::nullopt;
    std::optional<QString> text = droppedText(*event.mimeData());
    if (!text || !acceptAsCopy(event)) return std::nullopt;
    return text;
  }

  void pressDefaultButton() {
    for (QPushButton* button : findChildren<QPushButton*>()) {
      if (button->isDefault() && button->isVisible() && button->isEnabled()) {
        button->click();
        return;
      }
    }
  }

  /// The screen without bars and without what the window's frame may take.
  [[nodiscard]] QRect usableArea() const {
    constexpr int titleBar = 40;
    constexpr int border = 8;
    const QRect inner = geometry();
    const QRect outer = frameGeometry();
    const QMargins frame(
        std::max(border, inner.left() - outer.left()), std::max(titleBar, inner.top() - outer.top()),
        std::max(border, outer.right() - inner.right()), std::max(border, outer.bottom() - inner.bottom()));
    return screen()->availableGeometry().marginsRemoved(frame);
  }

  /// Whether it stands where it was last centred: the user has neither moved nor resized it since.
  [[nodiscard]] bool isCentered() const { return geometry() == centeredAt_; }

  void makeRoomForFrame() {
    if (isFrameKnown_ || frameGeometry() == geometry()) return;
    isFrameKnown_ = true;
    if (isCentered()) center();
  }

  void growBy(int change) {
    if (isMaximized() || isFullScreen()) return;
    const bool wasCentered = isCentered();
    resize(width(), height() + change);
    if (wasCentered) center();
  }

  /// Qt's own minimum does not know that text wraps to more lines in a narrow window. A screen that is too
  /// small for the whole content gets a part of it.
  void updateMinimumSize() {
    if (layout() == nullptr) return;
    const QSize needed = onScreen(minimumToAskFor());
    if (needed != minimumSize()) setMinimumSize(needed);
  }

  /// A compositor may give a window a tile of any size. Qt would go on drawing one that needs more, past the
  /// tile's edges, where nothing can be seen nor scrolled to.
  [[nodiscard]] QSize minimumToAskFor() const {
    constexpr QSize smallTile(120, 90);
    if (display_ == QtDisplay::wayland) return smallTile;
    QSize needed = nativeSize(model_.spec().minimumSize).expandedTo(content_->needed(width()));
    const QWidget* bar = layout()->menuBar();
    if (bar != nullptr && !bar->isHidden()) needed.rheight() += bar->sizeHint().height();
    return needed;
  }

  /// As much of it as the screen has room for. What is left of the height is scrolled, by a bar beside it.
  [[nodiscard]] QSize onScreen(QSize wanted) const {
    const QSize usable = usableArea().size();
    if (wanted.height() > usable.height())
      wanted.rwidth() += content_->verticalScrollBar()->sizeHint().width();
    return wanted.boundedTo(usable);
  }

  Window& model_;
  QtDisplay display_;
  QtFocusKeeper focus_;
  ContentArea* content_ = nullptr;  ///< a child of this window
  QTimer refusal_;
  std::optional<QRect> centeredAt_;
  bool isFrameKnown_ = false;
  std::optional<WindowStatusMenu> statusMenu_;
};

/// Screen readers look for windows by their role, which Qt gives to dialogs and main windows only.
class WindowAccessible final : public QAccessibleWidget {
 public:
  explicit WindowAccessible(NativeWindow& window) : QAccessibleWidget(&window, QAccessible::Window) {}
};

/// Qt takes ownership of what it answers.
QAccessibleInterface* makeWindowAccessible(const QString&, QObject* object) {
  auto* window = dynamic_cast<NativeWindow*>(object);
  if (window == nullptr) return nullptr;
  return std::make_unique<WindowAccessible>(*window).release();
}

class QtWindowView final : public WindowView {
 public:
  QtWindowView(Window& model, QtStatusMenu& statusMenu, std::optional<QDBusConnection> bus, QtDisplay display)
      : model_(model), window_(model, statusMenu, display), taskProgress_(std::move(bus), model.spec().job) {
    changes_ = model.observe([this] { mirror(); });
    mirror();
  }

 private:
  void mirror() {
    if (shown_ != model_.showRequests() && model_.isVisible()) {
      shown_ = model_.showRequests();
      window_.present();
    }
    if (!model_.isVisible() && window_.isVisible()) window_.hide();
    if (centered_ != model_.centerRequests()) {
      centered_ = model_.centerRequests();
      window_.center();
    }
  }

  Window& model_;
  NativeWindow window_;
  QtTaskProgress taskProgress_;
  std::uint64_t shown_ = 0;
  std::uint64_t centered_ = 0;
  Observable::Subscription changes_;
};

}  // namespace

std::unique_ptr<WindowView> QtWindowSystem::makeView(Window& window) {
  QAccessible::installFactory(makeWindowAccessible);  // installing it again changes nothing
  return std::make_unique<QtWindowView>(window, statusMenu_, bus_, display_);
}

}  // namespace zunto
