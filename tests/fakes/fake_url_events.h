// A world in which a test hands links to the program.
//
// Owner: the test, beside its clock. Thread: main thread only.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "async/clock.h"
#include "platform/url_events.h"

namespace zunto::testing {

class FakeUrlEvents final : public UrlEventSource {
 public:
  /// `clock` must outlive this object.
  explicit FakeUrlEvents(Clock& clock) : clock_(clock) {}

  void setHandler(Handler handler) override {
    state_->handler = std::move(handler);
    for (; !waiting_.empty(); waiting_.pop_front()) post(std::move(waiting_.front()));
  }

  void removeHandler() override { state_->handler = nullptr; }

  [[nodiscard]] bool hasHandler() const { return state_->handler != nullptr; }

  /// Hands an event to the handler on a turn of its own, or keeps it for the first one that is set.
  void deliver(UrlEvent event) {
    if (hasHandler()) {
      post(std::move(event));
    } else {
      waiting_.push_back(std::move(event));
    }
  }

  /// The same for an event that carries `link` as its text.
  void deliverLink(std::string link) { deliver({.directObject = UrlEventObject{std::move(link)}}); }

 private:
  struct State {
    Handler handler;
  };

  void post(UrlEvent event) {
    clock_.post([weak = std::weak_ptr<State>(state_), event = std::move(event)] {
      const std::shared_ptr<State> state = weak.lock();
      if (!state || !state->handler) return;
      const Handler handler = state->handler;
      handler(event);
    });
  }

  Clock& clock_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
  std::deque<UrlEvent> waiting_;
};

}  // namespace zunto::testing
