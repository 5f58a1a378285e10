// A window system without a screen: it remembers for which models views were asked, and which of those views
// still live. What a user would do is done to the models themselves.
//
// Owner: the test; it must outlive the views. Thread: main thread only.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "platform/window_system.h"

namespace zunto::testing {

class FakeWindowSystem final : public WindowSystem {
 public:
  [[nodiscard]] std::unique_ptr<WindowView> makeView(Window& window) override {
    ++viewsMade_;
    return std::make_unique<View>(window, shownModels_);
  }

  /// How many views were ever made.
  [[nodiscard]] std::size_t viewsMade() const { return viewsMade_; }

  /// The models of the views that live now, oldest first.
  [[nodiscard]] const std::vector<Window*>& windows() const { return shownModels_; }

 private:
  class View final : public WindowView {
   public:
    View(Window& window, std::vector<Window*>& models) : window_(window), models_(models) {
      models_.push_back(&window_);
    }
    View(const View&) = delete;
    View& operator=(const View&) = delete;
    ~View() override {
      const auto own = std::find(models_.begin(), models_.end(), &window_);
      if (own != models_.end()) models_.erase(own);
    }

   private:
    Window& window_;
    std::vector<Window*>& models_;
  };

  std::size_t viewsMade_ = 0;
  std::vector<Window*> shownModels_;
};

}  // namespace zunto::testing
