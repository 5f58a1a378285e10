#include "stage.h"

#include <array>
#include <chrono>
#include <utility>
#include <vector>

#include "app/entry.h"

namespace zunto::simulation {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t mostEvents = 50000;      // of one run; a program that comes to no rest makes more
constexpr std::size_t mostTurnsInARow = 2000;  // without time passing

struct MenuPlace {
  std::size_t position;
  State command;
  std::string_view title;
};
constexpr std::array menu = {MenuPlace{2, State::openVideoImport, "Open Video Import"},
                             MenuPlace{3, State::openDownloader, "Open Downloader"},
                             MenuPlace{4, State::toggleHelper, "Start/Stop Helper"},
                             MenuPlace{5, State::showLog, "Show Local Log"},
                             MenuPlace{7, State::quit, "Quit ZUNTO Helper"}};
constexpr std::array clicks = {State::clickAnalyze, State::clickDownload, State::clickCancel,
                               State::clickReveal, State::clickPaste};
// The odd nanoseconds keep late timers apart from what falls due in its time.
constexpr std::array<nanoseconds, delayChoices> delays = {0ns, 1ms + 1ns, 600ms + 1ns, 5s, 6100ms + 1ns};
constexpr std::array<nanoseconds, spanChoices> spans = {50ms, 150ms, 700ms, 2s, 5s, 10s, 65s};

constexpr std::array<std::string_view, static_cast<std::size_t>(ChildDeed::count)> childDeeds = {
    "serves", "hangs", "dies", "answers wrong", "fails", "ignores interrupts", "ignores both signals"};
constexpr std::array<std::string_view, static_cast<std::size_t>(MachineState::count)> machineStates = {
    "a component is missing", "the log is bad",        "launches are refused", "there are no resources",
    "there is no curl",       "children are stubborn", "all is sound"};
constexpr const char* resourcesFolder = "/app/resources";

/// The value that `number` means, counted round.
template <class Enum>
Enum numbered(std::uint8_t number) {
  return static_cast<Enum>(number % static_cast<std::uint8_t>(Enum::count));
}

std::string inMilliseconds(nanoseconds time) {
  return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(time).count()) + " ms";
}

}  // namespace

Stage::Stage() {
  static const FixedAddresses addresses = fixedAddresses(webHost);
  model_.look(world_);
  world_.host.resources = resourcesFolder;
  executor_.emplace(world_.loop());
  delegate_ = makeHelperDelegate(addresses, Backends{.executor = *executor_,
                                                     .application = world_,
                                                     .processSpawner = world_,
                                                     .commandRunner = world_,
                                                     .fileSystem = world_,
                                                     .outputFiles = world_,
                                                     .host = world_.host,
                                                     .httpSession = world_,
                                                     .statusBar = world_.statusBar,
                                                     .windowSystem = world_.windowSystem,
                                                     .urlEvents = world_,
                                                     .alerts = world_,
                                                     .savePanels = world_,
                                                     .pasteboard = world_.pasteboard,
                                                     .beeper = world_,
                                                     .workspace = world_});
  world_.terminating = [this] { delegate_->applicationWillTerminate(); };
}

bool Stage::canUseWindow() const {
  return window().window().isVisible() && world_.panels.empty() && world_.alerts.empty() && !world_.isEnding;
}

const PushButton& Stage::button(Button button) const {
  const ImportForm& controls = form();
  const std::array buttons = {&controls.analyzeButton, &controls.startButton, &controls.cancelButton,
                              &controls.revealButton, &controls.pasteButton};
  return *buttons.at(static_cast<std::size_t>(button));
}

void Stage::launch() {
  tell("the program is launched");
  model_.command(State::launching);
  delegate_->applicationDidFinishLaunching();
  check();
}

void Stage::end() {
  tell("the program ends");
  const std::weak_ptr<HelperDelegate> delegate = delegate_;
  const std::weak_ptr<DownloaderWindowController> window = delegate_->fields().downloaderWindow;
  delegate_.reset();
  executor_.reset();
  if (!delegate.expired()) throw Fault{"the delegate is held after the end"};
  if (!window.expired()) throw Fault{"the window is held after the end"};
  if (auto left = Invariants::leftBehind(world_)) throw Fault{*std::move(left)};
}

void Stage::check() {
  if (++events_ > mostEvents) throw Fault{"the program never comes to rest"};
  if (coverage != nullptr) count();
  if (narrator) {
    for (const Did& did : world_.deeds) tell("    " + inWords(did));
  }
  auto rule = invariants_.broken(world_, *delegate_);
  auto difference = model_.disagreement(*delegate_);
  if (rule) throw Fault{"broken: " + *rule + (difference ? "\n    and " + *difference : "")};
  if (difference) throw Fault{*std::move(difference)};
}

void Stage::count() const {
  for (const Did& did : world_.deeds) {
    const auto says = [&did](std::string_view text) { return did.text.find(text) != std::string::npos; };
    if (did.what == What::launched) ++coverage->launches;
    if (did.what == What::alertShown && says("Port 43127")) ++coverage->givenUp;
    if (did.what == What::sent && says("POST /probe")) ++coverage->analyses;
    if (did.what == What::sent && says("POST /jobs ")) ++coverage->downloads;
    if (did.what == What::sent && says("/cancel ")) ++coverage->cancellations;
    if (did.what == What::panelShown) ++coverage->panels;
    if (did.what == What::moved) ++coverage->saves;
    if (did.what == What::terminated) ++coverage->quits;
  }
  if (world_.toldOfAnEnd && delegate_->fields().processor && delegate_->fields().processor->isRunning()) {
    ++coverage->olderEnds;
  }
  if (!delegate_->fields().toggleMenuItem->isEnabled()) ++coverage->foreign;
}

void Stage::settle() {
  for (std::size_t turns = 0; world_.clock.runOneTurn(); ++turns) {
    if (turns > mostTurnsInARow) throw Fault{"the program never comes to rest"};
    check();
  }
}

void Stage::pass(nanoseconds span) {
  const nanoseconds end = world_.clock.now() + span;
  settle();
  for (;;) {
    const auto due = world_.clock.nextDue();
    if (!due || *due > end) break;
    if (*due > world_.clock.now()) world_.clock.block(*due - world_.clock.now());
    world_.clock.runOneTimer(0);
    check();
    settle();
  }
  if (end > world_.clock.now()) world_.clock.block(end - world_.clock.now());
}

bool Stage::apply(const Step& step) {
  switch (step.deed) {
    case Deed::turn:
      if (!world_.clock.runOneTurn()) return false;
      tell("one turn");
      check();
      return true;
    case Deed::settle:
      tell("turns until none is queued");
      settle();
      return true;
    case Deed::timer:
      return fireTimer(step);
    case Deed::pass:
      tell(inMilliseconds(spans.at(step.which % spans.size())) + " pass");
      pass(spans.at(step.which % spans.size()));
      return true;
    case Deed::menu:
      return useMenu(step);
    case Deed::link:
      return handOver(step);
    case Deed::click:
      return click(step);
    case Deed::edit:
      return edit(step);
    case Deed::close:
      return closeWindow();
    case Deed::pasteboard:
      return copy(step);
    case Deed::answer:
      return answer(step);
    case Deed::panel:
      return endPanel(step);
    case Deed::alert:
      return endAlert(step);
    case Deed::child:
      return treatChild(step);
    case Deed::notice:
      return tellOfAnEnd(step);
    case Deed::port:
      return changePort(step);
    case Deed::machine:
      return changeMachine(step);
    case Deed::disk:
      return changeDisk(step);
    case Deed::endSession:
      return endSession();
    case Deed::count:
      break;
  }
  return false;
}

bool Stage::fireTimer(const Step& step) {
  const auto due = world_.clock.nextDue();
  if (!due) return false;
  const nanoseconds late = delays.at(step.how % delays.size());
  const nanoseconds wait = *due + late - world_.clock.now();
  if (wait > 0ns) world_.clock.block(wait);
  tell("a timer at " + inMilliseconds(world_.clock.now()));
  world_.clock.runOneTimer(step.which);
  check();
  return true;
}

bool Stage::useMenu(const Step& step) {
  if (world_.isEnding) return false;
  const MenuPlace& place = menu.at(step.which % menu.size());
  const MenuItem& item = *world_.statusBar.items().front().lock()->menu()->items().at(place.position);
  if (!item.isEnabled()) return false;
  tell("menu: " + std::string(place.title));
  world_.isEnding = place.command == State::quit;
  model_.command(place.command);
  item.userChose();
  check();
  return true;
}

bool Stage::handOver(const Step& step) {
  if (world_.isEnding) return false;
  const std::size_t link = step.which % handedLinks.size();
  tell("link " + std::string(handedLinks.at(link).text.value_or("(none)")));
  world_.handOver(link);
  return true;
}

bool Stage::endPanel(const Step& step) {
  const std::size_t choice = step.which % (places.size() + 1);
  const bool isCancelled = choice == places.size();
  if (!world_.endPanel(isCancelled ? std::nullopt : std::optional(choice))) return false;
  tell(isCancelled ? "the panel is cancelled"
                   : "the panel is ended with " + std::string(places.at(choice).path));
  return true;
}

bool Stage::endAlert(const Step& step) {
  const std::size_t pressed = step.which % 2;
  if (!world_.endAlert(pressed)) return false;
  tell("the alert is ended by button " + std::to_string(pressed));
  return true;
}

bool Stage::tellOfAnEnd(const Step& step) {
  if (!world_.tellOfAnEnd(step.which)) return false;
  tell("a child's end is told");
  return true;
}

bool Stage::endSession() {
  if (world_.isEnding) return false;
  tell("the session ends");
  world_.isEnding = true;
  model_.command(State::terminate);
  delegate_->applicationWillTerminate();
  check();
  return true;
}

bool Stage::click(const Step& step) {
  const std::size_t which = step.which % clicks.size();
  if (!canUseWindow() || !answersUser(button(static_cast<Button>(which)))) return false;
  const PushButton& clicked = button(static_cast<Button>(which));
  tell("click " + clicked.title());
  model_.command(clicks.at(which));
  clicked.userClicked();
  check();
  return true;
}

bool Stage::select(PopUpButton& popup, std::size_t index, void (Model::*told)(std::size_t)) {
  if (!answersUser(popup) || popup.titles().empty()) return false;
  const std::size_t chosen = index % popup.titles().size();
  tell("select " + popup.titles().at(chosen));
  (model_.*told)(chosen);
  popup.userSelected(chosen);
  check();
  return true;
}

bool Stage::type(const Step& step) {
  if (!answersUser(form().urlField)) return false;
  const std::string_view text = linkTexts.at(step.how % linkTexts.size()).text;
  tell("type \"" + std::string(text) + '"');
  model_.edited(text);
  form().urlField.userEdited(std::string(text));
  check();
  return true;
}

bool Stage::edit(const Step& step) {
  if (!canUseWindow()) return false;
  switch (numbered<Edit>(step.which)) {
    case Edit::link:
      return type(step);
    case Edit::permission:
      tell("toggle the permission");
      model_.permissionToggled();
      form().permissionCheck.userToggled();
      check();
      return true;
    case Edit::access:
      return select(form().browserPopup, step.how, &Model::browserSelected);
    case Edit::mode:
      return select(form().modePopup, step.how, &Model::modeSelected);
    case Edit::quality:
      return select(form().qualityPopup, step.how, &Model::qualitySelected);
    case Edit::track:
      return select(form().subtitlePopup, step.how, &Model::trackSelected);
    case Edit::format:
      return select(form().subtitleFormatPopup, step.how, &Model::formatSelected);
    case Edit::count:
      break;
  }
  return false;
}

bool Stage::closeWindow() {
  if (!canUseWindow()) return false;
  tell("close the window");
  model_.command(State::windowClosed);
  window().window().userClosed();
  check();
  return true;
}

bool Stage::copy(const Step& step) {
  if (step.which % (linkTexts.size() + 1) == linkTexts.size()) {
    world_.pasteboard.text.reset();
  } else {
    world_.pasteboard.text = linkTexts.at(step.which % (linkTexts.size() + 1)).text;
  }
  tell("copy \"" + world_.pasteboard.text.value_or("(nothing)") + '"');
  return true;
}

bool Stage::answer(const Step& step) {
  const auto how = static_cast<Answer>(step.how % static_cast<std::size_t>(Answer::count));
  if (!world_.answer(step.which, how)) return false;
  tell("open request " + std::to_string(step.which) + " ends with answer " +
       std::to_string(static_cast<int>(how)) + " (" + std::string(nameOf(how)) + ")");
  return true;
}

bool Stage::treatChild(const Step& step) {
  std::vector<World::Child*> running;
  for (const auto& child : world_.children) {
    if (child->isRunning) running.push_back(child.get());
  }
  if (running.empty()) return false;
  World::Child& child = *running[step.which % running.size()];
  const auto deed = numbered<ChildDeed>(step.how);
  tell("a child " + std::string(childDeeds.at(static_cast<std::size_t>(deed))));
  switch (deed) {
    case ChildDeed::serve:
      child.service = World::Service::healthy;
      break;
    case ChildDeed::hang:
      child.service = World::Service::slow;
      break;
    case ChildDeed::die:
      child.isRunning = false;
      break;
    case ChildDeed::answerWrong:
      child.service = World::Service::unwell;
      break;
    case ChildDeed::fail:
      child.service = World::Service::failing;
      break;
    case ChildDeed::ignoreBothSignals:
      child.ignoresTerminate = true;
      [[fallthrough]];
    case ChildDeed::ignoreInterrupts:
      child.ignoresInterrupt = true;
      break;
    case ChildDeed::count:
      break;
  }
  check();
  return true;
}

bool Stage::changePort(const Step& step) {
  constexpr std::array services = {World::Service::none,   World::Service::healthy, World::Service::none,
                                   World::Service::unwell, World::Service::failing, World::Service::slow};
  world_.foreign = services.at(step.which % services.size());
  tell(world_.foreign == World::Service::none      ? "the port is free"
       : world_.foreign == World::Service::healthy ? "another processor serves"
                                                   : "another processor does not serve");
  return true;
}

bool Stage::changeMachine(const Step& step) {
  constexpr std::array faults = {World::LogFault::folder, World::LogFault::file, World::LogFault::seek,
                                 World::LogFault::close};
  const auto state = numbered<MachineState>(step.which);
  const auto component =
      state == MachineState::missingComponent ? std::optional(step.how % components.size()) : std::nullopt;
  world_.missingComponent = component;
  world_.logFault =
      state == MachineState::badLog ? faults.at(step.how % faults.size()) : World::LogFault::none;
  world_.refusesLaunches = state == MachineState::refusedLaunches;
  world_.host.resources.reset();
  if (state != MachineState::noResources) world_.host.resources = resourcesFolder;
  world_.hasCurl = state != MachineState::noCurl;
  world_.ignoresInterrupt = state == MachineState::stubbornChildren;
  tell("the machine: " + std::string(machineStates.at(static_cast<std::size_t>(state))));
  return true;
}

bool Stage::changeDisk(const Step& step) {
  world_.refusesRemoval = step.which % 4 == 1;
  world_.refusesMoves = step.which % 4 == 2;
  world_.isTaken.at(0) = step.how % 2 == 1;
  tell("the disk is in state " + std::to_string(step.which % 4));
  return true;
}

}  // namespace zunto::simulation
