// Save panels that stay open until the test answers them, as a user would.
//
// Owner: the test, after its clock, which must outlive it. Thread: main thread only.
#pragma once

#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "async/clock.h"
#include "platform/dialogs.h"

namespace zunto::testing {

class FakeSavePanels final : public SavePanelPresenter {
 public:
  explicit FakeSavePanels(Clock& clock) : clock_(clock) {}

  void showSavePanel(const SavePanel& panel,
                     std::function<void(std::optional<std::filesystem::path>)> chosen) override {
    panels_.push_back(panel);
    open_.push_back(std::move(chosen));
  }

  /// Every panel that was shown, oldest first.
  [[nodiscard]] const std::vector<SavePanel>& panels() const { return panels_; }

  /// How many of them still wait for an answer.
  [[nodiscard]] std::size_t openPanels() const { return open_.size(); }

  /// The user chooses `location` in the oldest open panel; its answer comes on a later turn. There must be an
  /// open panel.
  void choose(std::filesystem::path location) { answer(std::move(location)); }

  /// The user cancels the oldest open panel; its answer comes on a later turn. There must be an open panel.
  void cancel() { answer(std::nullopt); }

 private:
  void answer(std::optional<std::filesystem::path> location) {
    if (open_.empty()) throw std::logic_error("no save panel is open");
    clock_.post([chosen = std::move(open_.front()), location = std::move(location)] { chosen(location); });
    open_.pop_front();
  }

  Clock& clock_;
  std::vector<SavePanel> panels_;
  std::deque<std::function<void(std::optional<std::filesystem::path>)>> open_;
};

}  // namespace zunto::testing
