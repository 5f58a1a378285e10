#import "platform/appkit/app_kit_url_events.h"

#import <Cocoa/Cocoa.h>

#include <utility>
#include <vector>

#include "async/main_thread.h"
#import "platform/appkit/retained.h"
#import "platform/appkit/text.h"

namespace zunto {
namespace {

constexpr AEEventClass internetEventClass = 0x4755524C;  // 'GURL'
constexpr AEEventID getUrlEvent = 0x4755524C;            // 'GURL'
constexpr AEKeyword directObjectKeyword = 0x2D2D2D2D;    // '----'

/// The events that no handler has seen yet, and the handler. Shared with the turns that deliver, which find
/// no handler once it was removed.
class Deliveries final : public std::enable_shared_from_this<Deliveries> {
 public:
  explicit Deliveries(Clock& clock) : clock_(clock) {}

  void setHandler(UrlEventSource::Handler handler) {
    handler_ = std::move(handler);
    for (UrlEvent& event : std::exchange(early_, {})) deliver(std::move(event));
  }

  void removeHandler() { handler_ = nullptr; }

  void add(UrlEvent event) {
    if (handler_) {
      deliver(std::move(event));
    } else {
      early_.push_back(std::move(event));
    }
  }

 private:
  void deliver(UrlEvent event) {
    clock_.post([deliveries = weak_from_this(), event = std::move(event)] {
      const auto self = deliveries.lock();
      if (!self || !self->handler_) return;
      const UrlEventSource::Handler handler = self->handler_;
      handler(event);
    });
  }

  Clock& clock_;
  UrlEventSource::Handler handler_;
  std::vector<UrlEvent> early_;
};

UrlEvent readEvent(NSAppleEventDescriptor* event) {
  UrlEvent read;
  NSAppleEventDescriptor* object = [event paramDescriptorForKeyword:directObjectKeyword];
  if (object == nil) return read;
  read.directObject.emplace();
  NSString* text = [object stringValue];
  if (text != nil) read.directObject->stringValue = toUtf8(text);
  return read;
}

}  // namespace
}  // namespace zunto

NS_ASSUME_NONNULL_BEGIN

@interface ZUNTOUrlEventHandler : NSObject {
 @private
  std::shared_ptr<zunto::Deliveries> _deliveries;
  zunto::MainThread _mainThread;
}
- (instancetype)initWithDeliveries:(std::shared_ptr<zunto::Deliveries>)deliveries;
- (void)applicationWillFinishLaunching:(NSNotification*)notification;
- (void)install;
- (void)uninstall;
- (void)handleURLWithEvent:(NSAppleEventDescriptor*)event reply:(NSAppleEventDescriptor*)reply;
@end

NS_ASSUME_NONNULL_END

@implementation ZUNTOUrlEventHandler

- (instancetype)initWithDeliveries:(std::shared_ptr<zunto::Deliveries>)deliveries {
  self = [super init];
  if (self) _deliveries = std::move(deliveries);
  return self;
}

- (void)applicationWillFinishLaunching:(NSNotification*)notification {
  _mainThread.check("applicationWillFinishLaunching:");
  [self install];
}

- (void)install {
  [[NSAppleEventManager sharedAppleEventManager] setEventHandler:self
                                                     andSelector:@selector(handleURLWithEvent:reply:)
                                                   forEventClass:zunto::internetEventClass
                                                      andEventID:zunto::getUrlEvent];
}

- (void)uninstall {
  [[NSAppleEventManager sharedAppleEventManager] removeEventHandlerForEventClass:zunto::internetEventClass
                                                                      andEventID:zunto::getUrlEvent];
}

- (void)handleURLWithEvent:(NSAppleEventDescriptor*)event reply:(NSAppleEventDescriptor*)reply {
  _mainThread.check("handleURLWithEvent:reply:");
  _deliveries->add(zunto::readEvent(event));
}

@end

namespace zunto {

class AppKitUrlEvents::Impl {
 public:
  explicit Impl(Clock& clock)
      : deliveries_(std::make_shared<Deliveries>(clock)),
        handler_(Retained<ZUNTOUrlEventHandler>::adopt(
            [[ZUNTOUrlEventHandler alloc] initWithDeliveries:deliveries_])) {
    [[NSNotificationCenter defaultCenter] addObserver:handler_.get()
                                             selector:@selector(applicationWillFinishLaunching:)
                                                 name:NSApplicationWillFinishLaunchingNotification
                                               object:nil];
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    removeHandler();
    [[NSNotificationCenter defaultCenter] removeObserver:handler_.get()];
  }

  void setHandler(Handler handler) {
    [handler_.get() install];
    deliveries_->setHandler(std::move(handler));
  }

  void removeHandler() {
    [handler_.get() uninstall];
    deliveries_->removeHandler();
  }

 private:
  std::shared_ptr<Deliveries> deliveries_;
  Retained<ZUNTOUrlEventHandler> handler_;
};

AppKitUrlEvents::AppKitUrlEvents(Clock& clock) : impl_(std::make_unique<Impl>(clock)) {}

AppKitUrlEvents::~AppKitUrlEvents() = default;

void AppKitUrlEvents::setHandler(Handler handler) { impl_->setHandler(std::move(handler)); }

void AppKitUrlEvents::removeHandler() { impl_->removeHandler(); }

}  // namespace zunto
