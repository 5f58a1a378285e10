// Links handed to this program, one turn each.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only, the handler included.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "async/clock.h"
#include "platform/url_events.h"

namespace zunto {

class QtUrlEvents final : public UrlEventSource {
 public:
  /// `clock` must outlive this object.
  explicit QtUrlEvents(Clock& clock);
  /// Links that are not delivered yet are dropped.
  ~QtUrlEvents() override;

  /// Hands one link on, whatever its text, on a later turn, with the desktop's permission to come forward in
  /// `activationToken`, and calls `delivered` then; while no handler is set it waits for one.
  void deliver(std::string link, std::string activationToken = {}, std::function<void()> delivered = nullptr);

  void setHandler(Handler handler) override;
  void removeHandler() override;

 private:
  struct Waiting {
    std::string link;
    std::string activationToken;
    std::function<void()> delivered;
  };

  void scheduleDelivery();
  void deliverFirst();

  Clock& clock_;
  Handler handler_;
  std::deque<Waiting> waiting_;
  std::shared_ptr<QtUrlEvents*> self_;
};

}  // namespace zunto
