#import "platform/appkit/app_kit_clock.h"

#import <Foundation/Foundation.h>

#include <algorithm>
#include <deque>
#include <mutex>
#include <utility>

#include "async/main_thread.h"
#import "platform/appkit/retained.h"

namespace zunto {
namespace {

/// The turns that wait. Shared by the clock and the turn runner, which finds it empty once the clock is gone.
struct TurnQueue {
  std::mutex mutex;
  std::deque<Clock::Turn> turns;
  bool runIsRequested = false;
};

std::chrono::nanoseconds monotonicTime() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::steady_clock::now().time_since_epoch());
}

class PendingCall;

}  // namespace
}  // namespace zunto

NS_ASSUME_NONNULL_BEGIN

/// Runs one turn per request. The next request is made before a turn runs: a turn that stands still in a
/// modal dialog does not hold up the turns behind it.
@interface ZUNTOTurnRunner : NSObject {
 @private
  std::shared_ptr<zunto::TurnQueue> _queue;
  zunto::MainThread _mainThread;
}
- (instancetype)initWithQueue:(std::shared_ptr<zunto::TurnQueue>)queue;
- (void)requestRun;
- (void)runTurn;
@end

/// What a run-loop timer calls.
@interface ZUNTOTimerTarget : NSObject {
 @private
  std::shared_ptr<zunto::PendingCall> _call;
  zunto::MainThread _mainThread;
}
- (instancetype)initWithCall:(std::shared_ptr<zunto::PendingCall>)call;
- (void)fire:(NSTimer*)timer;
@end

NS_ASSUME_NONNULL_END

namespace zunto {
namespace {

/// One call of callLater(). The run loop's timer keeps it, through its target, until it fires or is
/// invalidated.
class PendingCall final : public std::enable_shared_from_this<PendingCall> {
 public:
  PendingCall(std::chrono::nanoseconds due, Clock::Turn turn) : due_(due), turn_(std::move(turn)) {}

  void schedule() {
    const std::chrono::duration<NSTimeInterval> rest = std::max(due_ - monotonicTime(), {});
    const auto target =
        Retained<ZUNTOTimerTarget>::adopt([[ZUNTOTimerTarget alloc] initWithCall:shared_from_this()]);
    timer_ = Retained<NSTimer>([NSTimer timerWithTimeInterval:rest.count()
                                                       target:target.get()
                                                     selector:@selector(fire:)
                                                     userInfo:nil
                                                      repeats:NO]);
    [[NSRunLoop mainRunLoop] addTimer:timer_.get() forMode:NSRunLoopCommonModes];
  }

  void fire() {
    timer_ = {};
    if (!turn_) return;
    if (monotonicTime() < due_) {
      schedule();  // the run loop goes by the wall clock, which may have been put forward
      return;
    }
    const Clock::Turn turn = std::exchange(turn_, nullptr);
    turn();
  }

  void cancel() {
    turn_ = nullptr;
    [std::exchange(timer_, {}).get() invalidate];
  }

 private:
  std::chrono::nanoseconds due_;
  Clock::Turn turn_;
  Retained<NSTimer> timer_;
};

class AppKitTimer final : public Timer {
 public:
  explicit AppKitTimer(std::shared_ptr<PendingCall> call) : call_(std::move(call)) {}
  ~AppKitTimer() override { call_->cancel(); }

 private:
  std::shared_ptr<PendingCall> call_;
};

}  // namespace
}  // namespace zunto

@implementation ZUNTOTurnRunner

- (instancetype)initWithQueue:(std::shared_ptr<zunto::TurnQueue>)queue {
  self = [super init];
  if (self) _queue = std::move(queue);
  return self;
}

- (void)requestRun {
  [self performSelectorOnMainThread:@selector(runTurn) withObject:nil waitUntilDone:NO];
}

- (void)runTurn {
  _mainThread.check("runTurn");
  zunto::Clock::Turn turn;
  {
    const std::lock_guard lock(_queue->mutex);
    _queue->runIsRequested = false;
    if (_queue->turns.empty()) return;
    turn = std::move(_queue->turns.front());
    _queue->turns.pop_front();
    if (!_queue->turns.empty()) {
      _queue->runIsRequested = true;
      [self requestRun];
    }
  }
  @autoreleasepool {
    turn();
    turn = nullptr;  // what the turn holds goes while there is a pool
  }
}

@end

@implementation ZUNTOTimerTarget

- (instancetype)initWithCall:(std::shared_ptr<zunto::PendingCall>)call {
  self = [super init];
  if (self) _call = std::move(call);
  return self;
}

- (void)fire:(NSTimer*)timer {
  _mainThread.check("fire:");
  const std::shared_ptr<zunto::PendingCall> call = _call;  // this object may go while the call runs
  @autoreleasepool {
    call->fire();
  }
}

@end

namespace zunto {

class AppKitClock::Impl {
 public:
  Impl()
      : queue_(std::make_shared<TurnQueue>()),
        runner_(Retained<ZUNTOTurnRunner>::adopt([[ZUNTOTurnRunner alloc] initWithQueue:queue_])) {}
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    std::deque<Turn> dropped;
    const std::lock_guard lock(queue_->mutex);
    dropped.swap(queue_->turns);
  }

  void post(Turn turn) {
    const std::lock_guard lock(queue_->mutex);
    queue_->turns.push_back(std::move(turn));
    if (std::exchange(queue_->runIsRequested, true)) return;
    @autoreleasepool {  // the posting thread need not have one
      [runner_.get() requestRun];
    }
  }

 private:
  std::shared_ptr<TurnQueue> queue_;
  Retained<ZUNTOTurnRunner> runner_;
};

AppKitClock::AppKitClock() {
  // The system's frameworks take their locks only once a thread of their own kind has been started; the
  // threads of this program are of another.
  if (![NSThread isMultiThreaded]) {
    [NSThread detachNewThreadSelector:@selector(class) toTarget:[NSObject class] withObject:nil];
  }
  impl_ = std::make_unique<Impl>();
}

AppKitClock::~AppKitClock() = default;

std::chrono::nanoseconds AppKitClock::now() const { return monotonicTime(); }

std::unique_ptr<Timer> AppKitClock::callLater(std::chrono::nanoseconds delay, Turn turn) {
  const auto call = std::make_shared<PendingCall>(monotonicTime() + delay, std::move(turn));
  call->schedule();
  return std::make_unique<AppKitTimer>(call);
}

void AppKitClock::post(Turn turn) { impl_->post(std::move(turn)); }

}  // namespace zunto
