// The macOS backend's sources compile against this file where GNUstep stands in for macOS: GNUstep's own
// headers, and what macOS 12 declares beyond them. Found before GNUstep's header of the same name.
//
// Only what the backend uses is here, with the signatures that macOS gives it. What a declaration does stands
// in the .mm files beside; what only tests use stands in compat.h.
#pragma once

#include_next <Cocoa/Cocoa.h>

#ifndef NS_ASSUME_NONNULL_BEGIN
#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#endif

// Constants that have other names here. Macros, since later releases of GNUstep have some of these, too.

#define NSEventModifierFlagShift static_cast<NSUInteger>(NSShiftKeyMask)
#define NSEventModifierFlagControl static_cast<NSUInteger>(NSControlKeyMask)
#define NSEventModifierFlagOption static_cast<NSUInteger>(NSAlternateKeyMask)
#define NSEventModifierFlagCommand static_cast<NSUInteger>(NSCommandKeyMask)
typedef NSUInteger NSWindowStyleMask;
#define NSBezelStyleRounded NSRoundedBezelStyle
#define NSProgressIndicatorStyleBar NSProgressIndicatorBarStyle
#define NSAlertStyleWarning NSWarningAlertStyle
#define NSEventTypeApplicationDefined NSApplicationDefined
#define NSEventMaskAny static_cast<NSEventMask>(NSAnyEventMask)

// Controls.

@protocol NSMenuItemValidation <NSObject>
- (BOOL)validateMenuItem:(NSMenuItem*)menuItem;
@end

@interface NSTextField (ZUNTOCompat)
+ (instancetype)labelWithString:(NSString*)string;
+ (instancetype)wrappingLabelWithString:(NSString*)string;
+ (instancetype)textFieldWithString:(NSString*)string;
@property(copy) NSString* placeholderString;
@property NSInteger maximumNumberOfLines;
@end

@interface NSCell (ZUNTOCompat)
@property BOOL truncatesLastVisibleLine;
@end

@interface NSControl (ZUNTOCompat)
@property NSLineBreakMode lineBreakMode;
@end

@interface NSButton (ZUNTOCompat)
+ (instancetype)buttonWithTitle:(NSString*)title target:(id)target action:(SEL)action;
+ (instancetype)checkboxWithTitle:(NSString*)title target:(id)target action:(SEL)action;
@end

@interface NSFont (ZUNTOCompat)
+ (NSFont*)systemFontOfSize:(CGFloat)size weight:(NSFontWeight)weight;
@end

// Windows, layout and accessibility.

@interface NSWindow (ZUNTOCompat)
@property BOOL restorable;
@property BOOL preventsApplicationTerminationWhenModal;
@end

@interface NSView (ZUNTOCompat)
@property BOOL translatesAutoresizingMaskIntoConstraints;
@property(readonly) NSLayoutXAxisAnchor* leadingAnchor;
@property(readonly) NSLayoutXAxisAnchor* trailingAnchor;
@property(readonly) NSLayoutYAxisAnchor* topAnchor;
@property(readonly) NSLayoutYAxisAnchor* bottomAnchor;
@property(readonly) NSLayoutDimension* widthAnchor;
@property(readonly) NSLayoutDimension* heightAnchor;
@property(readonly) NSSize intrinsicContentSize;
@property(copy) NSString* accessibilityLabel;
- (void)setContentHuggingPriority:(NSLayoutPriority)priority
                   forOrientation:(NSLayoutConstraintOrientation)orientation;
- (void)setContentCompressionResistancePriority:(NSLayoutPriority)priority
                                 forOrientation:(NSLayoutConstraintOrientation)orientation;
- (void)invalidateIntrinsicContentSize;
@end

typedef NSInteger NSStackViewDistribution;
#define NSStackViewDistributionGravityAreas static_cast<NSStackViewDistribution>(-1)
#define NSStackViewDistributionFill static_cast<NSStackViewDistribution>(0)

struct ZUNTOStackState;

// Later releases of GNUstep have one that takes no part in this layout, and no program has two classes of one
// name.
#define NSStackView ZUNTOStackView

@interface NSStackView : NSView {
  struct ZUNTOStackState* _state;
}
+ (instancetype)stackViewWithViews:(NSArray<NSView*>*)views;
@property NSUserInterfaceLayoutOrientation orientation;
@property NSLayoutAttribute alignment;
@property NSStackViewDistribution distribution;
@property CGFloat spacing;
@property(readonly, copy) NSArray<NSView*>* arrangedSubviews;
- (void)addArrangedSubview:(NSView*)view;
@end

// The status bar and its button.

@interface NSStatusItem (ZUNTOCompat)
@property(readonly) NSStatusBarButton* button;
@end

// The application and its surroundings.

@interface NSApplication (ZUNTOCompat)
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
- (NSApplicationActivationPolicy)activationPolicy;
@end

@interface NSWorkspace (ZUNTOCompat)
- (void)activateFileViewerSelectingURLs:(NSArray<NSURL*>*)fileURLs;
@end

@interface NSFileManager (ZUNTOCompat)
@property(readonly, copy) NSURL* homeDirectoryForCurrentUser;
@property(readonly, copy) NSURL* temporaryDirectory;
@end

// Apple events.

typedef uint32_t AEEventClass;
typedef uint32_t AEEventID;
typedef uint32_t AEKeyword;

@interface NSAppleEventDescriptor (ZUNTOCompat)
- (NSAppleEventDescriptor*)paramDescriptorForKeyword:(AEKeyword)keyword;
- (NSString*)stringValue;
@end

@interface NSAppleEventManager (ZUNTOCompat)
+ (NSAppleEventManager*)sharedAppleEventManager;
- (void)setEventHandler:(id)handler
            andSelector:(SEL)handleEventSelector
          forEventClass:(AEEventClass)eventClass
             andEventID:(AEEventID)eventID;
- (void)removeEventHandlerForEventClass:(AEEventClass)eventClass andEventID:(AEEventID)eventID;
@end
