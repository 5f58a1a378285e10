#import "platform/appkit/views.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "async/main_thread.h"
#import "platform/appkit/action_target.h"
#import "platform/appkit/text.h"

NS_ASSUME_NONNULL_BEGIN

/// Tells of every change that the user makes in a text field.
@interface ZUNTOTextFieldDelegate : NSObject <NSTextFieldDelegate> {
 @private
  std::function<void()> _edited;
  zunto::MainThread _mainThread;
}
- (instancetype)initWithEdited:(std::function<void()>)edited;
@end

NS_ASSUME_NONNULL_END

@implementation ZUNTOTextFieldDelegate

- (instancetype)initWithEdited:(std::function<void()>)edited {
  self = [super init];
  if (self) _edited = std::move(edited);
  return self;
}

- (void)controlTextDidChange:(NSNotification*)notification {
  _mainThread.check("controlTextDidChange:");
  _edited();
}

@end

namespace zunto {
namespace {

constexpr auto horizontal = NSLayoutConstraintOrientationHorizontal;

NSFont* nativeFont(const Font& font) {
  const CGFloat size = font.size ? *font.size : [NSFont systemFontSize];
  switch (font.weight) {
    case FontWeight::regular:
      return [NSFont systemFontOfSize:size];
    case FontWeight::semibold:
      return [NSFont systemFontOfSize:size weight:NSFontWeightSemibold];
    case FontWeight::bold:
      return [NSFont boldSystemFontOfSize:size];
  }
}

NSColor* nativeColor(TextColor color) {
  return color == TextColor::secondary ? [NSColor secondaryLabelColor] : [NSColor labelColor];
}

/// What all controls show alike. A control is enabled or disabled before its text is compared: disabling a
/// field drops the edit that is under way in it.
void mirrorControl(const Control& model, NSControl* native) {
  if ([native isEnabled] != model.isEnabled()) [native setEnabled:model.isEnabled()];
  if ([native isHidden] != model.isHidden()) [native setHidden:model.isHidden()];
}

void nameForAccessibility(const Control& model, NSView* native) {
  // Every setting is told to the screen reader.
  if (model.accessibleName().empty() || toUtf8([native accessibilityLabel]) == model.accessibleName()) return;
  [native setAccessibilityLabel:toNSString(model.accessibleName()).get()];
}

void mirrorText(const std::string& text, NSControl* native) {
  // Setting a text ends an edit in the field, so the user's own edit that came back as state must not.
  if (toUtf8([native stringValue]) != text) [native setStringValue:toNSString(text).get()];
}

/// Keeps to its natural width: the spare width of a row is for the element that asks for it.
void hugContent(NSView* native) {
  [native setContentHuggingPriority:NSLayoutPriorityDefaultHigh forOrientation:horizontal];
}

class LabelBinding final : public ViewBinding {
 public:
  explicit LabelBinding(Label& model)
      : model_(model),
        native_(model.style().wraps ? [NSTextField wrappingLabelWithString:@""]
                                    : [NSTextField labelWithString:@""]) {
    const LabelStyle& style = model.style();
    if (style.wraps) {
      [native_.get() setMaximumNumberOfLines:style.maximumLines];
      [[native_.get() cell] setTruncatesLastVisibleLine:YES];
    } else if (style.truncatesTail) {
      [native_.get() setLineBreakMode:NSLineBreakByTruncatingTail];
    }
    if (style.wraps || style.truncatesTail) {
      // A long text must never make the window wider.
      [native_.get() setContentCompressionResistancePriority:NSLayoutPriorityDefaultLow
                                              forOrientation:horizontal];
    }
    if (!style.wraps) hugContent(native_.get());
    if (style.keepsRoom) keepRoom();
    mirror();
    subscription_ = model.observe([this] { mirror(); });
  }

  [[nodiscard]] NSView* view() const override { return native_.get(); }
  [[nodiscard]] bool fillsWidth() const override { return model_.style().wraps; }

 private:
  void mirror() {
    mirrorControl(model_, native_.get());
    nameForAccessibility(model_, native_.get());
    mirrorStyle();
    const bool isNews = toUtf8([native_.get() stringValue]) != model_.text();
    mirrorText(model_.text(), native_.get());
    if (isNews && model_.style().announces) announce();
  }

  void keepRoom() const {
    NSFont* font = nativeFont(model_.style().font);
    const CGFloat line = std::ceil([font ascender] - [font descender] + [font leading]);
    [[[native_.get() heightAnchor] constraintEqualToConstant:line * model_.style().maximumLines]
        setActive:YES];
  }

  void mirrorStyle() const {
    Font font = model_.style().font;
    TextColor color = model_.style().color;
    if (model_.isProblem()) {
      font.weight = std::max(font.weight, FontWeight::semibold);
      color = TextColor::primary;
    }
    [native_.get() setFont:nativeFont(font)];
    [native_.get() setTextColor:nativeColor(color)];
  }

  /// Nothing that was never shown is announced.
  void announce() const {
    NSWindow* window = [native_.get() window];
    if (window == nil || ![window isVisible]) return;
    NSDictionary* news = [NSDictionary dictionaryWithObject:toNSString(model_.text()).get()
                                                     forKey:NSAccessibilityAnnouncementKey];
    NSAccessibilityPostNotificationWithUserInfo(window, NSAccessibilityAnnouncementRequestedNotification,
                                                news);
  }

  Label& model_;
  Retained<NSTextField> native_;
  Observable::Subscription subscription_;
};

class TextFieldBinding final : public ViewBinding {
 public:
  explicit TextFieldBinding(TextField& model)
      : model_(model),
        native_([NSTextField textFieldWithString:@""]),
        delegate_(Retained<ZUNTOTextFieldDelegate>::adopt(
            [[ZUNTOTextFieldDelegate alloc] initWithEdited:[this] { edited(); }])) {
    [native_.get() setPlaceholderString:toNSString(model.placeholder()).get()];
    [[native_.get() cell] setUsesSingleLineMode:YES];
    [[native_.get() cell] setScrollable:YES];
    [native_.get() setDelegate:delegate_.get()];
    mirror();
    subscription_ = model.observe([this] { mirror(); });
  }
  ~TextFieldBinding() override { [native_.get() setDelegate:nil]; }

  [[nodiscard]] NSView* view() const override { return native_.get(); }

 private:
  void edited() {
    model_.userEdited(toUtf8([native_.get() stringValue]));
    mirror();
  }

  void mirror() {
    mirrorControl(model_, native_.get());
    nameForAccessibility(model_, native_.get());
    [native_.get() setContentHuggingPriority:static_cast<NSLayoutPriority>(model_.horizontalHugging())
                              forOrientation:horizontal];
    mirrorText(model_.text(), native_.get());
  }

  TextField& model_;
  Retained<NSTextField> native_;
  Retained<ZUNTOTextFieldDelegate> delegate_;
  Observable::Subscription subscription_;
};

Retained<ZUNTOActionTarget> makeTarget(std::function<void()> action) {
  return Retained<ZUNTOActionTarget>::adopt([[ZUNTOActionTarget alloc] initWithAction:std::move(action)]);
}

class CheckBoxBinding final : public ViewBinding {
 public:
  explicit CheckBoxBinding(CheckBox& model)
      : model_(model),
        target_(makeTarget([this] { clicked(); })),
        native_([NSButton checkboxWithTitle:toNSString(model.title()).get()
                                     target:target_.get()
                                     action:@selector(performAction:)]) {
    hugContent(native_.get());
    mirror();
    subscription_ = model.observe([this] { mirror(); });
  }
  ~CheckBoxBinding() override { [native_.get() setTarget:nil]; }

  [[nodiscard]] NSView* view() const override { return native_.get(); }

 private:
  void clicked() {
    model_.userToggled();
    mirror();  // the native box has turned itself over, whatever the model made of it
  }

  void mirror() {
    mirrorControl(model_, native_.get());
    nameForAccessibility(model_, native_.get());
    [native_.get() setState:model_.isOn() ? NSControlStateValueOn : NSControlStateValueOff];
  }

  CheckBox& model_;
  Retained<ZUNTOActionTarget> target_;
  Retained<NSButton> native_;
  Observable::Subscription subscription_;
};

class PushButtonBinding final : public ViewBinding {
 public:
  explicit PushButtonBinding(PushButton& model)
      : model_(model),
        target_(makeTarget([&model] { model.userClicked(); })),
        native_([NSButton buttonWithTitle:toNSString(model.title()).get()
                                   target:target_.get()
                                   action:@selector(performAction:)]) {
    [native_.get() setBezelStyle:NSBezelStyleRounded];
    if (model.keyEquivalent() == KeyEquivalent::returnKey) [native_.get() setKeyEquivalent:@"\r"];
    hugContent(native_.get());
    mirror();
    subscription_ = model.observe([this] { mirror(); });
  }
  ~PushButtonBinding() override { [native_.get() setTarget:nil]; }

  [[nodiscard]] NSView* view() const override { return native_.get(); }

 private:
  void mirror() {
    mirrorControl(model_, native_.get());
    nameForAccessibility(model_, native_.get());
  }

  PushButton& model_;
  Retained<ZUNTOActionTarget> target_;
  Retained<NSButton> native_;
  Observable::Subscription subscription_;
};

class PopUpButtonBinding final : public ViewBinding {
 public:
  explicit PopUpButtonBinding(PopUpButton& model)
      : model_(model),
        target_(makeTarget([this] { chosen(); })),
        native_(Retained<NSPopUpButton>::adopt([[NSPopUpButton alloc] initWithFrame:NSZeroRect
                                                                          pullsDown:NO])) {
    [native_.get() setTarget:target_.get()];
    [native_.get() setAction:@selector(performAction:)];
    [native_.get() setLineBreakMode:NSLineBreakByTruncatingTail];
    hugContent(native_.get());
    showTitles();
    mirror();
    subscription_ = model.observe([this] { mirror(); });
  }
  ~PopUpButtonBinding() override { [native_.get() setTarget:nil]; }

  [[nodiscard]] NSView* view() const override { return native_.get(); }

 private:
  void chosen() {
    const NSInteger index = [native_.get() indexOfSelectedItem];
    if (index >= 0) model_.userSelected(static_cast<std::size_t>(index));
    mirror();  // the native button has selected the item, whatever the model made of it
  }

  void mirror() {
    mirrorControl(model_, native_.get());
    nameForAccessibility(model_, native_.get());
    if (shownRevision_ != model_.listRevision()) showTitles();
    const NSInteger selected = model_.selectedIndex() ? static_cast<NSInteger>(*model_.selectedIndex()) : -1;
    if ([native_.get() indexOfSelectedItem] != selected) [native_.get() selectItemAtIndex:selected];
  }

  /// Fills a menu apart and hands it over whole: the button looks at its items anew with each that is added
  /// to its own, and its addItemWithTitle: drops an earlier item of the same title.
  void showTitles() {
    shownRevision_ = model_.listRevision();
    const auto menu = Retained<NSMenu>::adopt([[NSMenu alloc] initWithTitle:@""]);
    for (const std::string& title : model_.titles()) {
      const auto item = Retained<NSMenuItem>::adopt([[NSMenuItem alloc] initWithTitle:toNSString(title).get()
                                                                               action:nullptr
                                                                        keyEquivalent:@""]);
      [menu.get() addItem:item.get()];
    }
    [native_.get() setMenu:menu.get()];
    [native_.get() invalidateIntrinsicContentSize];
    resistCompression();
  }

  /// Titles come from the media: a long one is cut short before it makes the window wider, and of several
  /// buttons in a row the widest gives way first.
  void resistCompression() {
    constexpr CGFloat pointsPerStep = 10;
    const CGFloat steps = [native_.get() intrinsicContentSize].width / pointsPerStep;
    const auto priority = NSLayoutPriorityDragThatCannotResizeWindow - static_cast<NSLayoutPriority>(steps);
    [native_.get() setContentCompressionResistancePriority:std::max(priority, NSLayoutPriorityDefaultLow)
                                            forOrientation:horizontal];
  }

  PopUpButton& model_;
  std::uint64_t shownRevision_ = 0;
  Retained<ZUNTOActionTarget> target_;
  Retained<NSPopUpButton> native_;
  Observable::Subscription subscription_;
};

class ProgressBarBinding final : public ViewBinding {
 public:
  explicit ProgressBarBinding(ProgressBar& model)
      : model_(model),
        native_(
            Retained<NSProgressIndicator>::adopt([[NSProgressIndicator alloc] initWithFrame:NSZeroRect])) {
    [native_.get() setStyle:NSProgressIndicatorStyleBar];
    [native_.get() setIndeterminate:NO];
    [native_.get() setMinValue:ProgressBar::minimum];
    [native_.get() setMaxValue:ProgressBar::maximum];
    mirror();
    subscription_ = model.observe([this] { mirror(); });
  }

  [[nodiscard]] NSView* view() const override { return native_.get(); }

 private:
  void mirror() {
    if ([native_.get() isHidden] != model_.isHidden()) [native_.get() setHidden:model_.isHidden()];
    nameForAccessibility(model_, native_.get());
    [native_.get() setDoubleValue:model_.value()];
  }

  ProgressBar& model_;
  Retained<NSProgressIndicator> native_;
  Observable::Subscription subscription_;
};

class SeparatorBinding final : public ViewBinding {
 public:
  SeparatorBinding() : native_(Retained<NSBox>::adopt([[NSBox alloc] initWithFrame:NSZeroRect])) {
    [native_.get() setBoxType:NSBoxSeparator];
    [[[native_.get() heightAnchor] constraintEqualToConstant:1] setActive:YES];
  }

  [[nodiscard]] NSView* view() const override { return native_.get(); }

 private:
  Retained<NSBox> native_;
};

/// Makes the binding of whatever stands in an element.
struct BindingMaker {
  using Binding = std::unique_ptr<ViewBinding>;
  Binding operator()(Label& model) const { return std::make_unique<LabelBinding>(model); }
  Binding operator()(TextField& model) const { return std::make_unique<TextFieldBinding>(model); }
  Binding operator()(CheckBox& model) const { return std::make_unique<CheckBoxBinding>(model); }
  Binding operator()(PushButton& model) const { return std::make_unique<PushButtonBinding>(model); }
  Binding operator()(PopUpButton& model) const { return std::make_unique<PopUpButtonBinding>(model); }
  Binding operator()(ProgressBar& model) const { return std::make_unique<ProgressBarBinding>(model); }
  Binding operator()(Separator) const { return std::make_unique<SeparatorBinding>(); }
  Binding operator()(const std::shared_ptr<const Stack>& stack) const { return makeStackView(*stack); }
};

NSLayoutAttribute nativeAlignment(const Stack& stack) {
  const bool isVertical = stack.orientation == Orientation::vertical;
  switch (stack.alignment) {
    case StackAlignment::leading:
      return isVertical ? NSLayoutAttributeLeading : NSLayoutAttributeTop;
    case StackAlignment::center:
      return isVertical ? NSLayoutAttributeCenterX : NSLayoutAttributeCenterY;
  }
}

class StackBinding final : public ViewBinding {
 public:
  explicit StackBinding(const Stack& stack) : native_([NSStackView stackViewWithViews:@[]]) {
    NSStackView* view = native_.get();
    const bool isVertical = stack.orientation == Orientation::vertical;
    [view setOrientation:isVertical ? NSUserInterfaceLayoutOrientationVertical
                                    : NSUserInterfaceLayoutOrientationHorizontal];
    [view setAlignment:nativeAlignment(stack)];
    [view setDistribution:NSStackViewDistributionFill];
    [view setSpacing:stack.spacing];
    for (const StackItem& item : stack.items) add(item, isVertical);
  }

  [[nodiscard]] NSView* view() const override { return native_.get(); }
  [[nodiscard]] std::vector<NSView*> column() const override { return column_; }

 private:
  void add(const StackItem& item, bool isVertical) {
    children_.push_back(std::visit(
        [](const auto& element) {
          if constexpr (requires { element.get().observe(nullptr); }) {
            return BindingMaker()(element.get());
          } else {
            return BindingMaker()(element);
          }
        },
        item.element));
    const ViewBinding& child = *children_.back();
    [child.view() setTranslatesAutoresizingMaskIntoConstraints:NO];
    [native_.get() addArrangedSubview:child.view()];
    if (item.width == ElementWidth::stack || (isVertical && child.fillsWidth())) {
      [[[child.view() widthAnchor] constraintEqualToAnchor:[native_.get() widthAnchor]] setActive:YES];
    }
    if (item.width == ElementWidth::column) addToColumn(child.view());
    for (NSView* view : child.column()) column_.push_back(view);
  }

  /// The widest is shown whole: it resists more than the others hug their content.
  void addToColumn(NSView* view) {
    const NSLayoutPriority aboveHugging = NSLayoutPriorityDefaultHigh + 1;
    [view setContentCompressionResistancePriority:aboveHugging forOrientation:horizontal];
    column_.push_back(view);
  }

  Retained<NSStackView> native_;
  std::vector<std::unique_ptr<ViewBinding>> children_;
  std::vector<NSView*> column_;
};

}  // namespace

std::unique_ptr<ViewBinding> makeStackView(const Stack& stack) {
  return std::make_unique<StackBinding>(stack);
}

}  // namespace zunto
