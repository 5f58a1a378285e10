// Links that other programs hand to this one (the GetURL event).
//
// Owner: the program's entry; outlives the logic. Thread: main thread only, the handler included.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "async/interface.h"

namespace zunto {

/// The direct object of an event; its text is none when it is of another kind.
struct UrlEventObject {
  std::optional<std::string> stringValue;
};

struct UrlEvent {
  std::optional<UrlEventObject> directObject;
};

class UrlEventSource : public Interface {
 public:
  using Handler = std::function<void(const UrlEvent&)>;

  /// Every event from now on goes to `handler`, on a turn of its own; one that came before a handler was set
  /// is delivered then. Replaces an earlier handler.
  virtual void setHandler(Handler handler) = 0;

  /// No handler is called from now on.
  virtual void removeHandler() = 0;
};

}  // namespace zunto
