#include "platform/qt/qt_url_events.h"

#include <utility>

#include "platform/qt/qt_activation.h"

namespace zunto {

QtUrlEvents::QtUrlEvents(Clock& clock) : clock_(clock), self_(std::make_shared<QtUrlEvents*>(this)) {}

QtUrlEvents::~QtUrlEvents() = default;

void QtUrlEvents::deliver(std::string link, std::string activationToken, std::function<void()> delivered) {
  waiting_.push_back({std::move(link), std::move(activationToken), std::move(delivered)});
  if (handler_) scheduleDelivery();
}

void QtUrlEvents::setHandler(Handler handler) {
  handler_ = std::move(handler);
  for (std::size_t i = 0; i < waiting_.size(); ++i) scheduleDelivery();
}

void QtUrlEvents::removeHandler() { handler_ = nullptr; }

void QtUrlEvents::scheduleDelivery() {
  clock_.post([self = std::weak_ptr<QtUrlEvents*>(self_)] {
    if (const auto alive = self.lock()) (*alive)->deliverFirst();
  });
}

void QtUrlEvents::deliverFirst() {
  if (!handler_ || waiting_.empty()) return;
  const Waiting next = std::move(waiting_.front());
  waiting_.pop_front();
  const Handler handler = handler_;
  const QtActivation activation(next.activationToken);
  handler(UrlEvent{UrlEventObject{next.link}});
  if (next.delivered) next.delivered();
}

}  // namespace zunto
