// What the files of the layer share.
#pragma once

#import <Cocoa/Cocoa.h>
#import <objc/runtime.h>

#include <string>

namespace zunto::testing {

/// What any function may be cast to and back without a warning.
using AnyFunction = void (*)();

/// Puts `replacement` in the place of an instance method and answers what was there.
template <class Function>
Function replaceMethod(Class type, SEL selector, Function replacement) {
  const IMP implementation = reinterpret_cast<IMP>(reinterpret_cast<AnyFunction>(replacement));
  return reinterpret_cast<Function>(reinterpret_cast<AnyFunction>(
      method_setImplementation(class_getInstanceMethod(type, selector), implementation)));
}

/// The modes that macOS counts among the common ones; here each is separate.
inline NSArray* commonModes() {
  return @[ NSDefaultRunLoopMode, NSModalPanelRunLoopMode, NSEventTrackingRunLoopMode ];
}

void noteDesktopRequest(const std::string& request);

/// Forgets what the layout knows of a view that is going.
void forgetLayout(NSView* view);

/// How many lines a wrapping label shows; 0 is any number.
[[nodiscard]] NSInteger maximumLines(NSTextField* label);
void setMaximumLines(NSTextField* label, NSInteger lines);

/// Lays the outermost stack around `view` out anew.
void layOutAround(NSView* view);

void installBlocks();
void installLayout();
void installRunLoop();
void installServices();

}  // namespace zunto::testing
