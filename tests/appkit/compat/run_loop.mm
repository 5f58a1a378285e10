// Run-loop modes and blocks.
#import "compat.h"
#import "internal.h"

#include <cstring>
#include <initializer_list>

// The block classes of libBlocksRuntime are empty memory, but blocks are sent messages.
extern "C" {
extern void* _NSConcreteStackBlock[32];
extern void* _NSConcreteGlobalBlock[32];
extern void* _NSConcreteMallocBlock[32];
void* _Block_copy(const void* block);
void _Block_release(const void* block);
}

@interface ZUNTOBlock : NSObject
@end

@implementation ZUNTOBlock

- (id)copyWithZone:(NSZone*)zone {
  return static_cast<id>(_Block_copy(self));
}

- (id)copy {
  return static_cast<id>(_Block_copy(self));
}

- (id)retain {
  return static_cast<id>(_Block_copy(self));
}

- (oneway void)release {
  _Block_release(self);
}

@end

@interface ZUNTOHeartbeat : NSObject
+ (void)beat:(NSTimer*)timer;
@end

@implementation ZUNTOHeartbeat

+ (void)beat:(NSTimer*)timer {
}

@end

namespace zunto::testing {
namespace {

void (*originalAddTimer)(id, SEL, NSTimer*, NSString*);
NSModalSession (*originalBeginModalSession)(id, SEL, NSWindow*);
int modalSessions = 0;

void addTimer(id loop, SEL selector, NSTimer* timer, NSString* mode) {
  if (![mode isEqualToString:NSRunLoopCommonModes]) {
    originalAddTimer(loop, selector, timer, mode);
    return;
  }
  for (NSString* common in commonModes()) originalAddTimer(loop, selector, timer, common);
}

NSModalSession beginModalSession(id application, SEL selector, NSWindow* window) {
  ++modalSessions;
  return originalBeginModalSession(application, selector, window);
}

}  // namespace

int modalSessionsBegun() { return modalSessions; }

void installBlocks() {
  // A class record of this runtime is 13 words; the blocks' memory has room for 32.
  constexpr std::size_t classRecord = 13 * sizeof(void*);
  for (void** place : {_NSConcreteStackBlock, _NSConcreteGlobalBlock, _NSConcreteMallocBlock}) {
    std::memcpy(place, static_cast<void*>([ZUNTOBlock class]), classRecord);
  }
}

void installRunLoop() {
  originalAddTimer = replaceMethod([NSRunLoop class], @selector(addTimer:forMode:), addTimer);
  originalBeginModalSession =
      replaceMethod([NSApplication class], @selector(beginModalSessionForWindow:), beginModalSession);
  // The loop here sleeps on after a timer has posted an event or stopped a modal session.
  NSTimer* beat = [NSTimer timerWithTimeInterval:0.02
                                          target:[ZUNTOHeartbeat class]
                                        selector:@selector(beat:)
                                        userInfo:nil
                                         repeats:YES];
  [[NSRunLoop currentRunLoop] addTimer:beat forMode:NSRunLoopCommonModes];
}

}  // namespace zunto::testing
