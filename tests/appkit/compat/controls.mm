// Convenience makers and properties of controls.
#import "compat.h"
#import "internal.h"

@implementation NSTextField (ZUNTOCompat)

+ (instancetype)labelWithString:(NSString*)string {
  NSTextField* label = [[[self alloc] initWithFrame:NSZeroRect] autorelease];
  [label setEditable:NO];
  [label setSelectable:NO];
  [label setBezeled:NO];
  [label setBordered:NO];
  [label setDrawsBackground:NO];
  [label setStringValue:string];
  return label;
}

+ (instancetype)wrappingLabelWithString:(NSString*)string {
  NSTextField* label = [self labelWithString:string];
  [[label cell] setWraps:YES];
  return label;
}

+ (instancetype)textFieldWithString:(NSString*)string {
  NSTextField* field = [[[self alloc] initWithFrame:NSZeroRect] autorelease];
  [field setStringValue:string];
  return field;
}

- (NSString*)placeholderString {
  return [static_cast<NSTextFieldCell*>([self cell]) placeholderString];
}

- (void)setPlaceholderString:(NSString*)string {
  [static_cast<NSTextFieldCell*>([self cell]) setPlaceholderString:string];
}

- (NSInteger)maximumNumberOfLines {
  return zunto::testing::maximumLines(self);
}

- (void)setMaximumNumberOfLines:(NSInteger)lines {
  zunto::testing::setMaximumLines(self, lines);
}

@end

@implementation NSControl (ZUNTOCompat)

- (NSLineBreakMode)lineBreakMode {
  return [[self cell] lineBreakMode];
}

- (void)setLineBreakMode:(NSLineBreakMode)mode {
  [[self cell] setLineBreakMode:mode];
}

@end

@implementation NSButton (ZUNTOCompat)

+ (instancetype)buttonWithTitle:(NSString*)title target:(id)target action:(SEL)action {
  NSButton* button = [[[self alloc] initWithFrame:NSZeroRect] autorelease];
  [button setButtonType:NSMomentaryPushInButton];
  [button setBezelStyle:NSRoundedBezelStyle];
  [button setTitle:title];
  [button setTarget:target];
  [button setAction:action];
  return button;
}

+ (instancetype)checkboxWithTitle:(NSString*)title target:(id)target action:(SEL)action {
  NSButton* box = [self buttonWithTitle:title target:target action:action];
  [box setButtonType:NSSwitchButton];
  [box setBordered:NO];
  [box setImagePosition:NSImageLeft];
  return box;
}

@end

@implementation NSFont (ZUNTOCompat)

+ (NSFont*)systemFontOfSize:(CGFloat)size weight:(NSFontWeight)weight {
  return weight >= NSFontWeightSemibold ? [NSFont boldSystemFontOfSize:size] : [NSFont systemFontOfSize:size];
}

@end
