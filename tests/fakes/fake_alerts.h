// Alerts that a test reads and answers.
//
// Owner: the test, beside its clock. Thread: main thread only.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "async/clock.h"
#include "platform/dialogs.h"

namespace zunto::testing {

class FakeAlerts final : public AlertPresenter {
 public:
  /// `clock` must outlive this object.
  explicit FakeAlerts(Clock& clock) : clock_(clock) {}

  void showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) override {
    shown_.push_back(alert);
    open_.push_back(std::move(answered));
  }

  /// Every alert so far, oldest first, answered ones included.
  [[nodiscard]] const std::vector<Alert>& shown() const { return shown_; }

  /// How many wait for an answer.
  [[nodiscard]] std::size_t openCount() const { return open_.size(); }

  /// The user presses `button` of the oldest open alert, which must exist: it closes now, and its answer
  /// comes on a turn of its own.
  void press(std::size_t button) {
    if (open_.empty()) throw std::logic_error("no alert is open");
    std::function<void(std::size_t)> answered = std::move(open_.front());
    open_.pop_front();
    clock_.post([answered = std::move(answered), button] { answered(button); });
  }

 private:
  Clock& clock_;
  std::vector<Alert> shown_;
  std::deque<std::function<void(std::size_t)>> open_;
};

}  // namespace zunto::testing
