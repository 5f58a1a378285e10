// The second witness: what the program has to do, as tables of states, and not as the program is written.
//
// Every flow that the program may have under way is a lane in one of a few dozen states. A row of the table
// says: in this state, on this cue, where this holds, these effects follow, and that is the next state. Two
// smaller tables say how the form and the status display look in each situation. The model is told of
// everything that the world brings to the program, just before it does; after each of these it must agree
// with the program on every field and control, on all that the program did to the world and in which order,
// and on what is still under way.
//
// What the rules leave open (the words of a decoder's complaint, of a cancellation) the model takes over from
// the program.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/helper_delegate.h"
#include "world.h"

namespace zunto::simulation {

/// What a lane was made for.
enum class Root : std::uint8_t { readiness, analysis, download, cancellation, toggle, tick, notice, command };

enum class State : std::uint8_t {
  // A lane that waits.
  unstarted,
  sleeping,
  alert,
  health,
  probeRequest,
  jobRequest,
  poll,
  pause,
  panel,
  fetch,
  cancelRequest,
  // Decisions, passed through at once.
  begin,
  startEnter,
  answerByProbe,
  firstProbe,
  waitProbe,
  started,
  notStarted,
  prepared,
  analyze,
  pollTop,
  savePlace,
  // What the user and the desktop do.
  launching,
  openVideoImport,
  openDownloader,
  toggleHelper,
  showLog,
  quit,
  terminate,
  present,
  clickAnalyze,
  clickPaste,
  clickDownload,
  clickCancel,
  clickReveal,
  modeChanged,
  windowClosed,
  end,
  count
};

/// What moves a lane out of a state.
enum class Cue : std::uint8_t { go, answered, elapsed, woken };

class Model final : public Witness {
 public:
  Model() = default;

  /// The world must outlive this object; to be called before anything else.
  void look(World& world) { world_ = &world; }

  // What the user and the desktop do, just before they do it.
  void command(State state);
  void presentWith(std::string_view link);
  void edited(std::string_view text);
  void permissionToggled();
  void browserSelected(std::size_t index);
  void modeSelected(std::size_t index);
  void qualitySelected(std::size_t index);
  void trackSelected(std::size_t index);
  void formatSelected(std::size_t index);

  void programTurn() override;
  void timerElapsed(std::uint64_t number) override;
  void answered(std::uint64_t request, Answer answer) override;
  void alertEnded(std::size_t button) override;
  void panelEnded(std::optional<std::size_t> place) override;
  void childEnded() override;
  void linkCame(std::size_t link) override;

  /// Where the program and the model differ, in words; none when they agree. Forgets the deeds of the step.
  [[nodiscard]] std::optional<std::string> disagreement(const HelperDelegate& delegate);

 private:
  friend struct Rules;

  struct Display {
    std::string_view statusLine;
    std::string_view toggleTitle;
    bool toggleEnabled = true;
    std::string_view barTitle;
  };

  /// What an analysis has left in the form.
  struct Media {
    std::string_view title;
    std::string_view detail;
    std::vector<std::string_view> qualities;
    std::vector<std::string_view> tracks;
    std::vector<std::string_view> trackIds;
    std::size_t recommended = 0;
  };

  struct Lane {
    std::uint64_t number = 0;
    Root root{};
    State state = State::unstarted;
    bool isCancelled = false;
    std::uint64_t wait = 0;  ///< counts its suspensions
    std::optional<std::uint64_t> timer = {};
    std::optional<std::uint64_t> request = {};
    // What it carries.
    bool isHealthy = false;
    int probes = 0;
    std::string_view link = {};
    std::string body = {};
    std::string jobId = {};
    std::string ownJobId = {};
    std::optional<Answer> answer = {};
    std::size_t button = 0;
    std::optional<std::size_t> place = {};
    std::optional<std::string_view> reason = {};  ///< why it failed; none where the words are open
  };

  struct Turn {
    bool isWake;
    std::uint64_t lane;
    std::uint64_t wait;
  };

  struct PendingTimer {
    std::uint64_t number;
    nanoseconds due;
  };

  void expect(What what, std::int64_t number = 0, std::string text = {}) {
    expected_.push_back({what, number, std::move(text)});
  }
  void fail(std::string why) {
    if (!fault_) fault_ = std::move(why);
  }
  [[nodiscard]] nanoseconds now() const { return world_->clock.now() + busy_; }
  Lane& spawn(Root root);
  void cancel(std::uint64_t number);
  [[nodiscard]] Lane* find(std::uint64_t number);
  void advance(Lane& lane, Cue cue);
  void suspend(Lane& lane);
  std::uint64_t startTimer(nanoseconds delay);
  std::uint64_t sendRequest(std::string text);
  [[nodiscard]] bool ownChildRuns() const;

  World* world_ = nullptr;
  nanoseconds busy_{0};  ///< that probes have blocked the loop in this event
  std::vector<Did> expected_;
  std::optional<std::string> fault_;

  // The main loop.
  std::deque<Lane> lanes_;
  std::deque<Turn> turns_;
  std::deque<std::uint64_t> panels_;  ///< the lanes that wait, in the order in which they asked
  std::vector<PendingTimer> timers_;
  std::uint64_t lanesSoFar_ = 0;
  std::uint64_t timersSoFar_ = 0;
  std::uint64_t requestsSoFar_ = 0;

  // The supervisor.
  std::optional<std::size_t> child_;
  std::size_t launches_ = 0;
  bool holdsLog_ = false;
  bool isStarting_ = false;
  std::optional<std::uint64_t> healthTimer_;
  nanoseconds launchedAt_{0};
  bool isListening_ = false;
  Display display_;

  // The window.
  std::string token_;
  std::optional<Media> analyzed_;
  std::optional<std::string> activeJobId_;
  std::optional<std::uint64_t> task_;
  std::optional<std::size_t> saved_;
  std::string urlText_;
  bool isPermitted_ = true;
  std::size_t browser_ = 0;
  std::size_t mode_ = 0;
  std::size_t quality_ = 0;
  std::size_t track_ = 0;
  std::size_t format_ = 0;
  std::vector<std::string_view> qualities_{"Analyze first"};
  std::vector<std::string_view> tracks_{"No subtitle tracks"};
  std::string_view title_ = "Paste a YouTube or Bilibili link to begin.";
  std::string_view detail_ = "Processing stays on this Mac.";
  double progress_ = 0;
  std::optional<std::string> status_ = "ZUNTO Helper is starting…";  ///< none where the words are open
  bool inputs_ = true;
  bool start_ = false;
  bool cancel_ = false;  ///< shown
  bool reveal_ = false;  ///< shown
  bool qualityShown_ = true;
  bool tracksShown_ = false;
  bool isVisible_ = false;
  std::uint64_t presentations_ = 0;
};

}  // namespace zunto::simulation
