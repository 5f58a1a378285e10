// Stack views, anchors and constraints: a small layout that knows exactly what the backend asks for. It lays
// out eagerly, whenever something changes that macOS would lay out for at the end of a turn.
#import "compat.h"
#import "internal.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace {

constexpr CGFloat unlimited = 1e6;

/// What a view knows of its own layout. Kept beside the views: this runtime has no associated objects.
struct ViewLayout {
  NSLayoutPriority hugging[2] = {250, 250};
  NSLayoutPriority compression[2] = {750, 750};
  std::optional<CGFloat> height;
  bool isAsWideAsItsStack = false;
  NSView* columnHead = nil;                   ///< the view whose width this one shares, maybe itself
  std::map<NSLayoutAttribute, CGFloat> pins;  ///< to the superview
  NSString* accessibilityLabel = nil;
  NSInteger maximumLines = 0;
  bool translatesMask = true;
};

std::unordered_map<void*, ViewLayout>& layouts() {
  static std::unordered_map<void*, ViewLayout> table;
  return table;
}

ViewLayout& layoutOf(NSView* view) { return layouts()[view]; }

}  // namespace

struct ZUNTOStackState {
  std::vector<NSView*> views;  ///< the subviews keep them
  NSUserInterfaceLayoutOrientation orientation = NSUserInterfaceLayoutOrientationHorizontal;
  NSLayoutAttribute alignment = NSLayoutAttributeCenterY;
  NSStackViewDistribution distribution = NSStackViewDistributionGravityAreas;
  CGFloat spacing = 8;
  bool isPlacing = false;

  [[nodiscard]] std::vector<NSView*> visibleViews() const {
    std::vector<NSView*> visible;
    std::copy_if(views.begin(), views.end(), std::back_inserter(visible),
                 [](NSView* view) { return ![view isHidden]; });
    return visible;
  }
};

@interface NSStackView (ZUNTOPlacing)
- (NSSize)sizeForWidth:(CGFloat)width;
- (void)place;
@end

namespace {

NSSize textFieldSize(NSTextField* field, CGFloat width) {
  NSCell* cell = [field cell];
  NSSize size = [cell cellSize];
  if ([field isEditable])
    return NSMakeSize(std::max<CGFloat>(size.width, 60), std::max<CGFloat>(size.height, 22));
  const bool isWrapping = [cell wraps] && layoutOf(field).maximumLines > 0;
  if (!isWrapping || width >= unlimited || width < 20) return size;  // not placed yet
  // The cell measures one line only.
  const NSSize space = NSMakeSize(width - 4, 1e4);
  const NSSize text =
      [[cell attributedStringValue] boundingRectWithSize:space options:NSStringDrawingUsesLineFragmentOrigin]
          .size;
  const CGFloat line = [[field font] defaultLineHeightForFont];
  const CGFloat most = line * static_cast<CGFloat>(layoutOf(field).maximumLines);
  return NSMakeSize(width, std::max(line, std::min(text.height, most)) + 4);
}

NSSize contentSize(NSView* view, CGFloat width) {
  if ([view isKindOfClass:[NSStackView class]]) return [static_cast<NSStackView*>(view) sizeForWidth:width];
  if ([view isKindOfClass:[NSTextField class]]) return textFieldSize(static_cast<NSTextField*>(view), width);
  if ([view isKindOfClass:[NSButton class]]) {
    NSButton* button = static_cast<NSButton*>(view);
    const NSSize cell = [[button cell] cellSize];
    if (![button isBordered]) return cell;
    return NSMakeSize(cell.width + 12, std::max<CGFloat>(cell.height, 24));
  }
  if ([view isKindOfClass:[NSProgressIndicator class]]) return NSMakeSize(0, 16);
  return [view frame].size;
}

/// As wide as the widest of the views that share the width of `head`.
CGFloat columnWidth(NSView* head) {
  CGFloat width = 0;
  for (const auto& [view, layout] : layouts()) {
    if (layout.columnHead == head) {
      width = std::max(width, contentSize(static_cast<NSView*>(view), unlimited).width);
    }
  }
  return width;
}

NSSize naturalSize(NSView* view, CGFloat stackWidth) {
  const ViewLayout& layout = layoutOf(view);
  NSSize size = contentSize(view, layout.isAsWideAsItsStack ? stackWidth : unlimited);
  if (layout.columnHead != nil) size.width = columnWidth(layout.columnHead);
  if (layout.isAsWideAsItsStack && stackWidth < unlimited) size.width = stackWidth;
  if (layout.height) size.height = *layout.height;
  return NSMakeSize(ceil(size.width), ceil(size.height));
}

/// The view that resists a stretch, or a shrinking, the least.
std::size_t softest(const std::vector<NSView*>& views, bool isStretch) {
  const auto resistance = [&](NSView* view) {
    return isStretch ? layoutOf(view).hugging[0] : layoutOf(view).compression[0];
  };
  const auto found = std::min_element(views.begin(), views.end(), [&](NSView* one, NSView* other) {
    return resistance(one) < resistance(other);
  });
  return static_cast<std::size_t>(found - views.begin());
}

/// Gives a row its width: by the one view that stretches most easily, or shrinks most easily.
void fitRow(const std::vector<NSView*>& views, std::vector<NSSize>& sizes, CGFloat spare) {
  if (views.empty()) return;
  NSSize& size = sizes[softest(views, spare > 0)];
  size.width = std::max<CGFloat>(20, size.width + spare);
}

void placeColumn(ZUNTOStackState& state, NSSize bounds) {
  CGFloat y = 0;
  for (NSView* view : state.visibleViews()) {
    const NSSize size = naturalSize(view, bounds.width);
    const CGFloat width = std::min(size.width, bounds.width);
    const CGFloat x = state.alignment == NSLayoutAttributeCenterX ? floor((bounds.width - width) / 2) : 0;
    [view setFrame:NSMakeRect(x, y, width, size.height)];
    y += size.height + state.spacing;
  }
}

void placeRow(ZUNTOStackState& state, NSSize bounds) {
  const std::vector<NSView*> views = state.visibleViews();
  std::vector<NSSize> sizes;
  CGFloat used = views.empty() ? 0 : state.spacing * static_cast<CGFloat>(views.size() - 1);
  for (NSView* view : views) {
    sizes.push_back(naturalSize(view, unlimited));
    used += sizes.back().width;
  }
  const bool mayStretch = state.distribution == NSStackViewDistributionFill;
  if (mayStretch || used > bounds.width) fitRow(views, sizes, bounds.width - used);
  CGFloat x = 0;
  for (std::size_t i = 0; i < views.size(); ++i) {
    const bool isAtTop = state.alignment == NSLayoutAttributeTop;
    const CGFloat y = isAtTop ? 0 : floor((bounds.height - sizes[i].height) / 2);
    [views[i] setFrame:NSMakeRect(x, y, sizes[i].width, sizes[i].height)];
    x += sizes[i].width + state.spacing;
  }
}

/// Pins a view into its superview by the distances it was given.
void placePinned(NSView* view) {
  const ViewLayout& layout = layoutOf(view);
  const NSSize outer = [[view superview] bounds].size;
  const auto pin = [&](NSLayoutAttribute attribute) {
    const auto found = layout.pins.find(attribute);
    return found == layout.pins.end() ? 0 : found->second;
  };
  const CGFloat leading = pin(NSLayoutAttributeLeading);
  const CGFloat width = outer.width - leading + pin(NSLayoutAttributeTrailing);
  const CGFloat height = contentSize(view, width).height;
  const CGFloat top = pin(NSLayoutAttributeTop);
  const CGFloat y = [[view superview] isFlipped] ? top : outer.height - top - height;
  [view setAutoresizingMask:NSViewWidthSizable | NSViewMinYMargin];
  [view setFrame:NSMakeRect(leading, y, width, height)];
}

}  // namespace

namespace zunto::testing {

void forgetLayout(NSView* view) {
  const auto found = layouts().find(view);
  if (found == layouts().end()) return;
  [found->second.accessibilityLabel release];
  layouts().erase(found);
}

NSInteger maximumLines(NSTextField* label) { return layoutOf(label).maximumLines; }

void setMaximumLines(NSTextField* label, NSInteger lines) { layoutOf(label).maximumLines = lines; }

void layOutAround(NSView* view) {
  NSStackView* outermost = nil;
  for (; view != nil; view = [view superview]) {
    if ([view isKindOfClass:[NSStackView class]]) outermost = static_cast<NSStackView*>(view);
  }
  if (outermost == nil) return;
  if (!layoutOf(outermost).pins.empty()) placePinned(outermost);
  [outermost place];
}

}  // namespace zunto::testing

@implementation NSStackView

+ (instancetype)stackViewWithViews:(NSArray<NSView*>*)views {
  NSStackView* stack = [[[self alloc] initWithFrame:NSZeroRect] autorelease];
  for (NSView* view in views) [stack addArrangedSubview:view];
  return stack;
}

- (id)initWithFrame:(NSRect)frame {
  self = [super initWithFrame:frame];
  if (self) _state = std::make_unique<ZUNTOStackState>().release();
  return self;
}

- (void)dealloc {
  const std::unique_ptr<ZUNTOStackState> state(_state);
  _state = nullptr;
  [super dealloc];
}

- (BOOL)isFlipped {
  return YES;
}

- (NSUserInterfaceLayoutOrientation)orientation {
  return _state->orientation;
}

- (void)setOrientation:(NSUserInterfaceLayoutOrientation)orientation {
  _state->orientation = orientation;
}

- (NSLayoutAttribute)alignment {
  return _state->alignment;
}

- (void)setAlignment:(NSLayoutAttribute)alignment {
  _state->alignment = alignment;
}

- (NSStackViewDistribution)distribution {
  return _state->distribution;
}

- (void)setDistribution:(NSStackViewDistribution)distribution {
  _state->distribution = distribution;
}

- (CGFloat)spacing {
  return _state->spacing;
}

- (void)setSpacing:(CGFloat)spacing {
  _state->spacing = spacing;
}

- (NSArray<NSView*>*)arrangedSubviews {
  return [NSArray arrayWithObjects:_state->views.data() count:_state->views.size()];
}

- (void)addArrangedSubview:(NSView*)view {
  _state->views.push_back(view);
  [self addSubview:view];
}

- (NSSize)sizeForWidth:(CGFloat)width {
  NSSize total = NSZeroSize;
  const std::vector<NSView*> views = _state->visibleViews();
  const CGFloat gaps = views.empty() ? 0 : _state->spacing * static_cast<CGFloat>(views.size() - 1);
  const bool isColumn = _state->orientation == NSUserInterfaceLayoutOrientationVertical;
  for (NSView* view : views) {
    const NSSize size = naturalSize(view, isColumn ? width : unlimited);
    total.width = isColumn ? std::max(total.width, size.width) : total.width + size.width;
    total.height = isColumn ? total.height + size.height : std::max(total.height, size.height);
  }
  if (isColumn) {
    total.height += gaps;
  } else {
    total.width += gaps;
  }
  return total;
}

- (void)place {
  if (_state == nullptr || _state->isPlacing) return;
  _state->isPlacing = true;
  if (_state->orientation == NSUserInterfaceLayoutOrientationVertical) {
    placeColumn(*_state, [self bounds].size);
  } else {
    placeRow(*_state, [self bounds].size);
  }
  for (NSView* view : _state->visibleViews()) {
    if ([view isKindOfClass:[NSStackView class]]) [static_cast<NSStackView*>(view) place];
  }
  _state->isPlacing = false;
  [self setNeedsDisplay:YES];
}

- (void)setFrame:(NSRect)frame {
  [super setFrame:frame];
  [self place];
}

@end

// Anchors: each names one attribute of one view.

namespace {

NSLayoutConstraint* makeConstraint(NSView* view, NSLayoutAttribute attribute, NSLayoutRelation relation,
                                   NSView* otherView, NSLayoutAttribute otherAttribute, CGFloat constant) {
  return [NSLayoutConstraint constraintWithItem:view
                                      attribute:attribute
                                      relatedBy:relation
                                         toItem:otherView
                                      attribute:otherAttribute
                                     multiplier:1
                                       constant:constant];
}

}  // namespace

@interface ZUNTOAnchor : NSLayoutDimension {
 @public
  NSView* _view;
  NSLayoutAttribute _attribute;
}
@end

@implementation ZUNTOAnchor

+ (id)anchorOf:(NSView*)view attribute:(NSLayoutAttribute)attribute {
  ZUNTOAnchor* anchor = [[[self alloc] init] autorelease];
  anchor->_view = view;
  anchor->_attribute = attribute;
  return anchor;
}

- (NSLayoutConstraint*)relation:(NSLayoutRelation)relation to:(id)other constant:(CGFloat)constant {
  ZUNTOAnchor* anchor = other;
  return makeConstraint(_view, _attribute, relation, anchor->_view, anchor->_attribute, constant);
}

- (NSLayoutConstraint*)constraintEqualToAnchor:(NSLayoutAnchor*)anchor {
  return [self relation:NSLayoutRelationEqual to:anchor constant:0];
}

- (NSLayoutConstraint*)constraintEqualToAnchor:(NSLayoutAnchor*)anchor constant:(CGFloat)constant {
  return [self relation:NSLayoutRelationEqual to:anchor constant:constant];
}

- (NSLayoutConstraint*)constraintLessThanOrEqualToAnchor:(NSLayoutAnchor*)anchor constant:(CGFloat)constant {
  return [self relation:NSLayoutRelationLessThanOrEqual to:anchor constant:constant];
}

- (NSLayoutConstraint*)constraintEqualToConstant:(CGFloat)constant {
  return makeConstraint(_view, _attribute, NSLayoutRelationEqual, nil, NSLayoutAttributeNotAnAttribute,
                        constant);
}

@end

@implementation NSView (ZUNTOCompat)

- (BOOL)translatesAutoresizingMaskIntoConstraints {
  return layoutOf(self).translatesMask;
}

- (void)setTranslatesAutoresizingMaskIntoConstraints:(BOOL)translates {
  layoutOf(self).translatesMask = translates;
}

- (NSLayoutXAxisAnchor*)leadingAnchor {
  return [ZUNTOAnchor anchorOf:self attribute:NSLayoutAttributeLeading];
}

- (NSLayoutXAxisAnchor*)trailingAnchor {
  return [ZUNTOAnchor anchorOf:self attribute:NSLayoutAttributeTrailing];
}

- (NSLayoutYAxisAnchor*)topAnchor {
  return [ZUNTOAnchor anchorOf:self attribute:NSLayoutAttributeTop];
}

- (NSLayoutYAxisAnchor*)bottomAnchor {
  return [ZUNTOAnchor anchorOf:self attribute:NSLayoutAttributeBottom];
}

- (NSLayoutDimension*)widthAnchor {
  return [ZUNTOAnchor anchorOf:self attribute:NSLayoutAttributeWidth];
}

- (NSLayoutDimension*)heightAnchor {
  return [ZUNTOAnchor anchorOf:self attribute:NSLayoutAttributeHeight];
}

- (void)setContentHuggingPriority:(NSLayoutPriority)priority
                   forOrientation:(NSLayoutConstraintOrientation)orientation {
  layoutOf(self).hugging[orientation] = priority;
}

- (void)setContentCompressionResistancePriority:(NSLayoutPriority)priority
                                 forOrientation:(NSLayoutConstraintOrientation)orientation {
  layoutOf(self).compression[orientation] = priority;
}

- (NSSize)intrinsicContentSize {
  return contentSize(self, unlimited);
}

- (void)invalidateIntrinsicContentSize {
  zunto::testing::layOutAround([self superview]);
}

- (NSString*)accessibilityLabel {
  return layoutOf(self).accessibilityLabel;
}

- (void)setAccessibilityLabel:(NSString*)label {
  ViewLayout& layout = layoutOf(self);
  [layout.accessibilityLabel release];
  layout.accessibilityLabel = [label copy];
}

@end

@implementation NSCell (ZUNTOCompat)

// The stand-in clips what does not fit; where an ellipsis goes is nothing that a test here can show.
- (BOOL)truncatesLastVisibleLine {
  return NO;
}

- (void)setTruncatesLastVisibleLine:(BOOL)truncates {
}

@end

// Hooks: what makes macOS lay out again.

namespace zunto::testing {
namespace {

/// Takes the place of -[NSLayoutConstraint setActive:], which does nothing here.
void setActive(id constraint, SEL, BOOL active) {
  if (!active) [NSException raise:NSInvalidArgumentException format:@"constraints are only ever activated"];
  NSView* view = [constraint firstItem];
  ViewLayout& layout = layoutOf(view);
  switch ([constraint firstAttribute]) {
    case NSLayoutAttributeWidth:
      if ([constraint secondItem] == [view superview]) {
        layout.isAsWideAsItsStack = true;
      } else {
        layout.columnHead = [constraint secondItem];
        layoutOf(layout.columnHead).columnHead = layout.columnHead;
      }
      break;
    case NSLayoutAttributeHeight:
      layout.height = [constraint constant];
      break;
    default:
      layout.pins[[constraint firstAttribute]] = [constraint constant];
      break;
  }
  layOutAround(view);
}

void activateConstraints(id, SEL, NSArray* constraints) {
  for (NSLayoutConstraint* constraint in constraints) [constraint setActive:YES];
}

void (*originalSetHidden)(id, SEL, BOOL);
void (*originalSetString)(id, SEL, NSString*);
void (*originalSetTitle)(id, SEL, NSString*);
void (*originalDealloc)(id, SEL);

void setHidden(id view, SEL selector, BOOL hidden) {
  originalSetHidden(view, selector, hidden);
  layOutAround([view superview]);
}

void setString(id control, SEL selector, NSString* string) {
  originalSetString(control, selector, string);
  layOutAround([control superview]);
}

void setTitle(id button, SEL selector, NSString* title) {
  originalSetTitle(button, selector, title);
  layOutAround([button superview]);
}

void dealloc(id view, SEL selector) {
  forgetLayout(view);
  originalDealloc(view, selector);
}

}  // namespace

void installLayout() {
  originalSetHidden = replaceMethod([NSView class], @selector(setHidden:), setHidden);
  originalDealloc = replaceMethod([NSView class], @selector(dealloc), dealloc);
  originalSetString = replaceMethod([NSControl class], @selector(setStringValue:), setString);
  originalSetTitle = replaceMethod([NSButton class], @selector(setTitle:), setTitle);
  replaceMethod([NSLayoutConstraint class], @selector(setActive:), setActive);
  replaceMethod(object_getClass([NSLayoutConstraint class]), @selector(activateConstraints:),
                activateConstraints);
}

}  // namespace zunto::testing
