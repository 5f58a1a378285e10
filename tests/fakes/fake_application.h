// An application object that only counts what is asked of it.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include <functional>
#include <utility>

#include "platform/application.h"

namespace zunto::testing {

class FakeApplication final : public Application {
 public:
  void activateIgnoringOtherApps() override {
    ++activations_;
    if (activating_) activating_();
  }
  void terminate() override {
    ++terminations_;
    if (terminating_) terminating_();
  }

  /// How often each was asked for.
  [[nodiscard]] int activations() const { return activations_; }
  [[nodiscard]] int terminations() const { return terminations_; }

  /// From now on `activating` is called inside activateIgnoringOtherApps().
  void onActivate(std::function<void()> activating) { activating_ = std::move(activating); }

  /// From now on `terminating` is called inside terminate(): where the real application tells its delegate.
  void onTerminate(std::function<void()> terminating) { terminating_ = std::move(terminating); }

 private:
  int activations_ = 0;
  int terminations_ = 0;
  std::function<void()> activating_;
  std::function<void()> terminating_;
};

}  // namespace zunto::testing
