#import "platform/appkit/action_target.h"

#include <utility>

@implementation ZUNTOActionTarget

- (instancetype)initWithAction:(std::function<void()>)action {
  self = [super init];
  if (self) _action = std::move(action);
  return self;
}

- (void)performAction:(nullable id)sender {
  _mainThread.check("performAction:");
  _action();
}

@end
