// One run's program, world and witnesses, and what each step of a schedule does to them.
//
// Owner: whoever runs the schedule. Thread: one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/helper_delegate.h"
#include "async/executor.h"
#include "invariants.h"
#include "model.h"
#include "schedule.h"
#include "world.h"

namespace zunto::simulation {

/// What the witnesses have against the program.
struct Fault {
  std::string text;
};

/// What runs have reached together, so that a schedule that never gets anywhere is seen.
struct Coverage {
  std::size_t launches = 0;
  std::size_t givenUp = 0;
  std::size_t foreign = 0;
  std::size_t analyses = 0;
  std::size_t downloads = 0;
  std::size_t cancellations = 0;
  std::size_t panels = 0;
  std::size_t saves = 0;
  std::size_t quits = 0;
  std::size_t olderEnds = 0;  ///< a child's end that came while another child was held
};

/// Takes what happens, line by line, while it happens.
using Narrator = std::function<void(const std::string& line)>;

/// What a step's numbers choose among.
inline constexpr std::size_t delayChoices = 5;  ///< how late a timer is called
inline constexpr std::size_t spanChoices = 7;   ///< how much time passes; the shortest come first

/// The commands of the status menu, as `which` of a step counts them.
enum class MenuCommand : std::uint8_t { videoImport, downloader, toggle, log, quit };
/// The buttons of the window, likewise.
enum class Button : std::uint8_t { analyze, download, cancel, reveal, paste };
/// What the user changes in the window.
enum class Edit : std::uint8_t { link, permission, access, mode, quality, track, format, count };
/// What happens to a child, as `how` of a step counts it.
enum class ChildDeed : std::uint8_t {
  serve,
  hang,
  die,
  answerWrong,
  fail,
  ignoreInterrupts,
  ignoreBothSignals,
  count
};
/// What is wrong with the machine; one thing at a time.
enum class MachineState : std::uint8_t {
  missingComponent,
  badLog,
  refusedLaunches,
  noResources,
  noCurl,
  stubbornChildren,  ///< those launched from now on ignore interrupts
  sound,
  count
};

class Stage {
 public:
  Narrator narrator;             ///< may be none
  Coverage* coverage = nullptr;  ///< may be none

  Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  ~Stage() = default;

  // Each throws Fault when a witness disagrees.

  /// The launch sequence; the first thing to do.
  void launch();

  /// Answers whether the step found anything to do.
  bool apply(const Step& step);

  /// The event loop ends, and everything with it; the last thing to do.
  void end();

  /// How often the witnesses have looked.
  [[nodiscard]] std::size_t events() const { return events_; }
  [[nodiscard]] const World& world() const { return world_; }
  [[nodiscard]] const HelperDelegate& delegate() const { return *delegate_; }
  [[nodiscard]] DownloaderWindowController& window() const { return *delegate_->fields().downloaderWindow; }

  /// Whether the user gets at the window: it is shown, and neither a panel nor an alert stands before it.
  [[nodiscard]] bool canUseWindow() const;
  [[nodiscard]] const PushButton& button(Button button) const;
  static bool answersUser(const Control& control) { return control.isEnabled() && !control.isHidden(); }

 private:
  [[nodiscard]] ImportForm& form() const { return window().form(); }

  void tell(const std::string& what) const {
    if (narrator) narrator(what);
  }
  void check();
  void count() const;
  void settle();
  void pass(nanoseconds span);
  bool fireTimer(const Step& step);
  bool useMenu(const Step& step);
  bool handOver(const Step& step);
  bool click(const Step& step);
  bool edit(const Step& step);
  bool type(const Step& step);
  bool select(PopUpButton& popup, std::size_t index, void (Model::*told)(std::size_t));
  bool closeWindow();
  bool copy(const Step& step);
  bool answer(const Step& step);
  bool endPanel(const Step& step);
  bool endAlert(const Step& step);
  bool treatChild(const Step& step);
  bool tellOfAnEnd(const Step& step);
  bool changePort(const Step& step);
  bool changeMachine(const Step& step);
  bool changeDisk(const Step& step);
  bool endSession();

  std::size_t events_ = 0;
  Model model_;
  World world_{model_};
  std::optional<Executor> executor_;
  std::shared_ptr<HelperDelegate> delegate_;
  Invariants invariants_;
};

}  // namespace zunto::simulation
