// The user in front of a modal dialog: notes what it says, and answers.
//
// Owner: the test; destroying it takes the user away. Thread: main thread only.
#pragma once

#import <Cocoa/Cocoa.h>

#include <functional>
#include <optional>
#include <vector>

#include "tests/faces/face.h"

@class ZUNTOModalWatch;

namespace zunto::testing {

class ModalUser final : public DialogDriver {
 public:
  ModalUser();
  ~ModalUser() override;

  void answerAlert(std::string button) override { nextButton_ = std::move(button); }
  void answerSavePanel(std::optional<std::filesystem::path> location) override {
    nextLocation_ = std::move(location);
  }
  [[nodiscard]] const std::vector<SeenDialog>& seen() const override { return seen_; }

  /// Waits with the answer until this answers true.
  void setMayAnswer(std::function<bool()> mayAnswer) { mayAnswer_ = std::move(mayAnswer); }

  /// Called by the watch when a modal window stands.
  void look(NSWindow* modalWindow);

 private:
  void answer(NSSavePanel* panel);
  void answer(NSWindow* alert);

  std::vector<SeenDialog> seen_;
  std::optional<std::string> nextButton_;
  std::optional<std::optional<std::filesystem::path>> nextLocation_;
  std::function<bool()> mayAnswer_;
  NSTimer* timer_;
  int answeredSession_ = 0;
};

}  // namespace zunto::testing
