#include "invariants.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

namespace zunto::simulation {

using namespace std::chrono_literals;

namespace {

struct Shown {
  std::string_view statusLine;
  std::string_view toggleTitle;
  bool isToggleEnabled;
  std::string_view barTitle;
};
constexpr std::array reported = {
    Shown{"ZUNTO Helper Ready · 127.0.0.1:43127", "Stop Helper", true, "Z/UNTO ●"},
    Shown{"ZUNTO Helper Ready · 127.0.0.1:43127", "Helper managed by another process", false, "Z/UNTO ●"},
    Shown{"ZUNTO Helper Stopped", "Start Helper", true, "Z/UNTO"},
};
constexpr std::size_t startingStatus = reported.size();
constexpr std::size_t stoppedStatus = startingStatus - 1;
constexpr std::size_t noStatus = startingStatus + 1;

/// Which of the four states the display is in.
std::size_t statusOf(const SupervisorFields& own) {
  if (own.statusMenuItem->title() == "Starting ZUNTO Helper…") return startingStatus;
  for (std::size_t i = 0; i < reported.size(); ++i) {
    const Shown& shown = reported.at(i);
    if (own.statusMenuItem->title() == shown.statusLine && own.toggleMenuItem->title() == shown.toggleTitle &&
        own.toggleMenuItem->isEnabled() == shown.isToggleEnabled &&
        own.statusItem->buttonTitle() == shown.barTitle) {
      return i;
    }
  }
  return noStatus;
}

}  // namespace

std::optional<std::string> Invariants::broken(World& world, const HelperDelegate& delegate) {
  const SupervisorFields& own = delegate.fields();
  if (own.statusItem) {
    checkStart(world, own);
    checkChildren(world, own);
    checkDisplay(world, own);
  }
  if (own.downloaderWindow) {
    const ImportFields& fields = own.downloaderWindow->fields();
    const ImportForm& form = own.downloaderWindow->form();
    checkRequests(world, fields);
    checkJobs(world, fields, form);
    checkForm(fields, form);
  }
  world.justSent.clear();
  world.lastProbe.reset();
  world.toldOfAnEnd = false;
  world.placeChosen = false;
  if (broken_ == nullptr) return std::nullopt;
  return std::string(broken_);
}

// From outside a start sequence under way is a short sleep or an alert. In a task that was cancelled it
// sleeps without a timer, for the one turn that is posted.
void Invariants::checkStart(const World& world, const SupervisorFields& own) {
  const auto isSleep = [](const World::ProgramTimer& timer) { return timer.delay == 150ms && !timer.isTick; };
  const auto sleeps = std::count_if(world.timers.begin(), world.timers.end(), isSleep);
  const std::size_t underWay = world.alerts.size() + static_cast<std::size_t>(sleeps);
  require(underWay <= 1, "no two start sequences are under way");
  if (underWay == 1) require(own.isStarting, "isStarting holds while a start sequence is under way");
  // An alert that was just answered is on its way in a turn of the world's.
  const bool mayBeUnderWay = underWay == 1 || world.programTurns > 0 || world.alertsEnding == 1;
  if (own.isStarting) require(mayBeUnderWay, "isStarting holds only while a start sequence is under way");
}

void Invariants::checkChildren(const World& world, const SupervisorFields& own) {
  const std::size_t children = world.children.size();
  hasLaunched_ = children > children_;
  hasLetGo_ = false;
  if (hasLaunched_) {
    require(children == children_ + 1 && !held_, "no child is launched while one is held");
    require(own.processor != nullptr, "a child that was launched is held");
    held_ = children - 1;
  } else if (held_ && own.processor == nullptr) {
    const World::Child& child = *world.children.at(*held_);
    const nanoseconds now = world.clock.now();
    if (heldRuns_ && !endIsKnown_) {
      require(!child.interrupts.empty() && child.interrupts.back() == now,
              "a running child that is let go has been interrupted");
      require(!child.terminateCalls.empty() && child.terminateCalls.back() == now + 2s,
              "an interrupted child is terminated two seconds later");
    }
    hasLetGo_ = true;
    held_.reset();
  }
  heldRuns_ = held_ && world.children.at(*held_)->isRunning;
  children_ = children;
}

void Invariants::checkDisplay(const World& world, const SupervisorFields& own) {
  const std::size_t status = statusOf(own);
  require(status != noStatus, "the display is one of the four states");
  if (status != status_) {
    const bool isSeenUp = world.lastProbe == true;
    const bool isSeenDown = world.lastProbe == false || hasLetGo_ || endIsKnown_;
    if (status == startingStatus) {
      require(hasLaunched_ || children_ == 0, "the display says starting when a child was launched");
    } else if (status == stoppedStatus) {
      require(isSeenDown, "the display says stopped when a probe, a stop or an end said so");
    } else {
      require(isSeenUp, "the display says ready when a probe has said so");
    }
  }
  status_ = status;
  endIsKnown_ = world.toldOfAnEnd || (endIsKnown_ && world.programTurns > 0);
}

void Invariants::checkRequests(const World& world, const ImportFields& fields) {
  for (const World::Request& request : world.justSent) {
    const bool isPlain = request.kind == RequestKind::health || request.kind == RequestKind::result;
    require(request.kind == RequestKind::health || !fields.sessionToken.empty(),
            "no request but health is sent before there is a token");
    require(request.hasToken == (request.method == "POST"), "a POST carries the token, and a POST alone");
    if (request.hasToken) {
      require(request.token == "Bearer " + fields.sessionToken, "the token is the one at hand");
    }
    require(request.hasContentType == !isPlain, "the plain fetches alone carry no content type");
    if (request.kind == RequestKind::result) {
      require(world.placeChosen, "nothing is fetched unless a place was chosen");
    }
  }
}

void Invariants::checkJobs(const World& world, const ImportFields& fields, const ImportForm& form) {
  const auto& running = world.jobsRunning;
  if (fields.activeJobId) {
    require(std::find(running.begin(), running.end(), *fields.activeJobId) != running.end(),
            "activeJobId is set only while that download job runs");
  }
  if (!form.cancelButton.isHidden()) {
    const bool isAsked = std::any_of(world.requests.begin(), world.requests.end(),
                                     [](const auto& request) { return request.kind == RequestKind::jobs; });
    require(isAsked || !running.empty() || world.programTurns > 0,
            "Cancel is shown only while there is something to cancel");
  }
  if (fields.savedURL && fields.savedURL != saved_) {
    require(world.saves > saves_, "savedURL is set only after a save");
  }
  require(form.revealButton.isHidden() == !fields.savedURL, "what was saved can be shown, and nothing else");
  saved_ = fields.savedURL;
  saves_ = world.saves;
}

void Invariants::checkForm(const ImportFields& fields, const ImportForm& form) {
  const bool inputs = form.urlField.isEnabled();
  require(form.pasteButton.isEnabled() == inputs && form.analyzeButton.isEnabled() == inputs &&
              form.browserPopup.isEnabled() == inputs,
          "the four inputs are enabled together");
  require(!form.startButton.isEnabled() || fields.analyzedJob, "Download needs an analysed job");
  require(form.permissionCheck.isEnabled() && form.modePopup.isEnabled() && form.qualityPopup.isEnabled() &&
              form.subtitlePopup.isEnabled() && form.subtitleFormatPopup.isEnabled(),
          "the output's controls are never disabled");
  const auto mode = form.modePopup.selectedIndex();
  require(form.qualityPopup.isHidden() == (mode != 0U), "the quality is shown for a video, and only then");
  require(
      form.subtitlePopup.isHidden() == (mode != 2U) && form.subtitleFormatPopup.isHidden() == (mode != 2U),
      "the tracks are shown for a subtitle, and only then");
}

std::optional<std::string> Invariants::leftBehind(const World& world) {
  if (!world.timers.empty()) return "a timer is left after the end";
  if (!world.requests.empty()) return "a request is left after the end";
  if (world.openLogs != 0) return "the log is left open after the end";
  if (!world.windowSystem.windows().empty()) return "a window is left after the end";
  for (const auto& item : world.statusBar.items()) {
    if (!item.expired()) return "the status item is left after the end";
  }
  for (const auto& file : world.temporaryFiles) {
    if (!file->destination && !file->isRemoved) return "a temporary file is left after the end";
  }
  return std::nullopt;
}

}  // namespace zunto::simulation
