// GetURL Apple events. The handler of the system is in place before launching has finished, because the event
// of a link that started the program comes before that.
//
// Owner: the program's entry; made before the application runs. Destroying it takes the handler away. Thread:
// main thread only.
#pragma once

#include <memory>

#include "async/clock.h"
#include "platform/url_events.h"

namespace zunto {

class AppKitUrlEvents final : public UrlEventSource {
 public:
  explicit AppKitUrlEvents(Clock& clock);
  ~AppKitUrlEvents() override;

  void setHandler(Handler handler) override;
  void removeHandler() override;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zunto
