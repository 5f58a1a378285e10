// The target of a control's action: calls one function on the main thread.
//
// Owner: the binding that made it; a control does not keep its target. Thread: main thread only.
#pragma once

#import <Cocoa/Cocoa.h>

#include <functional>

#include "async/main_thread.h"

NS_ASSUME_NONNULL_BEGIN

@interface ZUNTOActionTarget : NSObject {
 @private
  std::function<void()> _action;
  zunto::MainThread _mainThread;
}
- (instancetype)initWithAction:(std::function<void()>)action;
- (void)performAction:(nullable id)sender;
@end

NS_ASSUME_NONNULL_END
