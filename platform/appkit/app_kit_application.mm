#import "platform/appkit/app_kit_application.h"

#import <Cocoa/Cocoa.h>

#include <utility>

#include "async/main_thread.h"
#import "platform/appkit/retained.h"
#import "platform/appkit/termination_signals.h"

NS_ASSUME_NONNULL_BEGIN

@interface ZUNTOApplicationDelegate : NSObject <NSApplicationDelegate> {
 @private
  std::weak_ptr<zunto::ApplicationDelegate> _delegate;
  std::function<void()> _didTerminate;
  zunto::MainThread _mainThread;
}
- (void)setDelegate:(std::weak_ptr<zunto::ApplicationDelegate>)delegate;
- (void)setDidTerminate:(std::function<void()>)didTerminate;
@end

NS_ASSUME_NONNULL_END

@implementation ZUNTOApplicationDelegate

- (void)setDelegate:(std::weak_ptr<zunto::ApplicationDelegate>)delegate {
  _delegate = std::move(delegate);
}

- (void)setDidTerminate:(std::function<void()>)didTerminate {
  _didTerminate = std::move(didTerminate);
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
  _mainThread.check("applicationDidFinishLaunching:");
  if (const auto delegate = _delegate.lock()) delegate->applicationDidFinishLaunching();
}

- (void)applicationWillTerminate:(NSNotification*)notification {
  _mainThread.check("applicationWillTerminate:");
  if (const auto delegate = _delegate.lock()) delegate->applicationWillTerminate();
  const std::function<void()> didTerminate = std::exchange(_didTerminate, nullptr);
  if (didTerminate) didTerminate();
}

// Nothing of the windows is archived; without this answer the system warns about insecure archives.
- (BOOL)applicationSupportsSecureRestorableState:(NSApplication*)application {
  _mainThread.check("applicationSupportsSecureRestorableState:");
  return YES;
}

@end

namespace zunto {

class AppKitApplication::Impl {
 public:
  explicit Impl(Clock& clock)
      : clock_(clock),
        application_([NSApplication sharedApplication]),
        delegate_(Retained<ZUNTOApplicationDelegate>::adopt([[ZUNTOApplicationDelegate alloc] init])),
        signals_([] { [[NSApplication sharedApplication] terminate:nil]; }) {
    [application_.get() setDelegate:delegate_.get()];
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() { [application_.get() setDelegate:nil]; }

  Clock& clock_;
  Retained<NSApplication> application_;
  Retained<ZUNTOApplicationDelegate> delegate_;
  TerminationSignals signals_;
};

AppKitApplication::AppKitApplication(Clock& clock) : impl_(std::make_unique<Impl>(clock)) {}

AppKitApplication::~AppKitApplication() = default;

void AppKitApplication::activateIgnoringOtherApps() {
  [impl_->application_.get() activateIgnoringOtherApps:YES];
}

void AppKitApplication::terminate() {
  impl_->clock_.post([] { [[NSApplication sharedApplication] terminate:nil]; });
}

void AppKitApplication::setDelegate(std::weak_ptr<ApplicationDelegate> delegate) {
  [impl_->delegate_.get() setDelegate:std::move(delegate)];
}

void AppKitApplication::setActivationPolicy(ActivationPolicy policy) {
  switch (policy) {
    case ActivationPolicy::regular:
      [impl_->application_.get() setActivationPolicy:NSApplicationActivationPolicyRegular];
      break;
  }
}

void AppKitApplication::run() { [impl_->application_.get() run]; }

void AppKitApplication::setDidTerminate(std::function<void()> didTerminate) {
  [impl_->delegate_.get() setDidTerminate:std::move(didTerminate)];
}

}  // namespace zunto
