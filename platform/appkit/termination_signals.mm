#import "platform/appkit/termination_signals.h"

#import <Cocoa/Cocoa.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <utility>

#include "async/main_thread.h"
#import "platform/appkit/retained.h"

namespace zunto {
namespace {

constexpr std::array terminationSignals{SIGTERM, SIGINT, SIGHUP};

// The one thing that a signal handler can reach.
std::atomic<int> signalPipe{-1};

void noteSignal(int) {
  const int savedError = errno;
  const char byte = 0;
  // A full pipe already holds the notice.
  [[maybe_unused]] const ssize_t written = ::write(signalPipe.load(), &byte, 1);
  errno = savedError;
}

bool keepPrivate(int descriptor) {
  return ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0 && ::fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0;
}

}  // namespace
}  // namespace zunto

NS_ASSUME_NONNULL_BEGIN

@interface ZUNTOSignalListener : NSObject {
 @private
  std::function<void()> _received;
  zunto::MainThread _mainThread;
}
- (instancetype)initWithReceived:(std::function<void()>)received;
- (void)listenTo:(NSFileHandle*)pipe;
- (void)pipeHasData:(NSNotification*)notification;
@end

NS_ASSUME_NONNULL_END

@implementation ZUNTOSignalListener

- (instancetype)initWithReceived:(std::function<void()>)received {
  self = [super init];
  if (self) _received = std::move(received);
  return self;
}

- (void)listenTo:(NSFileHandle*)pipe {
  [pipe waitForDataInBackgroundAndNotifyForModes:@[
    NSDefaultRunLoopMode, NSModalPanelRunLoopMode, NSEventTrackingRunLoopMode
  ]];
}

- (void)pipeHasData:(NSNotification*)notification {
  _mainThread.check("pipeHasData:");
  NSFileHandle* pipe = [notification object];
  std::array<char, 16> bytes;
  while (::read([pipe fileDescriptor], bytes.data(), bytes.size()) > 0) {
  }
  [self listenTo:pipe];
  _received();
}

@end

namespace zunto {

class TerminationSignals::Impl {
 public:
  Impl(int readEnd, int writeEnd, std::function<void()> received)
      : writeEnd_(writeEnd),
        pipe_(Retained<NSFileHandle>::adopt([[NSFileHandle alloc] initWithFileDescriptor:readEnd
                                                                          closeOnDealloc:YES])),
        listener_(Retained<ZUNTOSignalListener>::adopt(
            [[ZUNTOSignalListener alloc] initWithReceived:std::move(received)])) {
    [[NSNotificationCenter defaultCenter] addObserver:listener_.get()
                                             selector:@selector(pipeHasData:)
                                                 name:NSFileHandleDataAvailableNotification
                                               object:pipe_.get()];
    [listener_.get() listenTo:pipe_.get()];
    signalPipe = writeEnd_;
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < terminationSignals.size(); ++i) {
      ::sigaction(terminationSignals[i], nullptr, &earlier_[i]);
      const bool isIgnored = earlier_[i].sa_handler == SIG_IGN;  // as under nohup, and so it stays
      if (!isIgnored) ::sigaction(terminationSignals[i], &action, nullptr);
    }
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    for (std::size_t i = 0; i < terminationSignals.size(); ++i) {
      ::sigaction(terminationSignals[i], &earlier_[i], nullptr);
    }
    [[NSNotificationCenter defaultCenter] removeObserver:listener_.get()];
    signalPipe = -1;
    ::close(writeEnd_);
  }

 private:
  int writeEnd_;
  Retained<NSFileHandle> pipe_;
  Retained<ZUNTOSignalListener> listener_;
  std::array<struct sigaction, terminationSignals.size()> earlier_{};
};

TerminationSignals::TerminationSignals(std::function<void()> received) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return;
  if (!keepPrivate(ends[0]) || !keepPrivate(ends[1])) {
    ::close(ends[0]);
    ::close(ends[1]);
    return;
  }
  impl_ = std::make_unique<Impl>(ends[0], ends[1], std::move(received));
}

TerminationSignals::~TerminationSignals() = default;

}  // namespace zunto
