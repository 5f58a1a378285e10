// A titled, closable, miniaturizable and resizable window with one stack of controls.
//
// The program asks (show, center); the view does it and says what the user did (userClosed). Closing only
// hides: the model and its controls stay as they are. Owner: the controller. Thread: main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/model/layout.h"
#include "platform/model/observable.h"

namespace zunto {

/// A job whose progress desktops may show outside of its window, too.
struct JobProgress {
  ProgressBar* progress = nullptr;    ///< none where there is no such job
  Control* runsWhileShown = nullptr;  ///< there as long as the job runs, as what ends it is
};

/// What a window is made of; fixed.
struct WindowSpec {
  std::string title;
  Size contentSize;  ///< points, at first
  Size minimumSize;  ///< points
  Insets insets;     ///< of `content` in the window
  Stack content;
  /// The one whose text the user replaces by dropping a link or a text anywhere on the window, where views
  /// know how to; none where nothing can be dropped.
  TextField* dropField = nullptr;
  JobProgress job{};
};

class Window final : public Observable {
 public:
  explicit Window(WindowSpec spec) : spec_(std::move(spec)) {}

  [[nodiscard]] const WindowSpec& spec() const { return spec_; }

  [[nodiscard]] bool isVisible() const { return visible_; }

  /// Shows the window, in front of the program's others, or brings it to the front when it is shown already.
  void show();

  /// Puts it in the middle of the screen, where the desktop allows that.
  void center();

  /// How often each was asked for: a view acts when the number has grown, since asking twice for what is
  /// already so is not a change of state.
  [[nodiscard]] std::uint64_t showRequests() const { return showRequests_; }
  [[nodiscard]] std::uint64_t centerRequests() const { return centerRequests_; }

  /// Called inside userClosed(), before the window is hidden.
  void setWillClose(std::function<void()> willClose) { willClose_ = std::move(willClose); }

  /// For the view: the user has closed the window.
  void userClosed();

 private:
  WindowSpec spec_;
  bool visible_ = false;
  std::uint64_t showRequests_ = 0;
  std::uint64_t centerRequests_ = 0;
  std::function<void()> willClose_;
};

}  // namespace zunto
