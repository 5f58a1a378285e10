#include "choice.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "world.h"

namespace zunto::simulation {

namespace {

template <class T>
std::uint8_t byte(T value) {
  return static_cast<std::uint8_t>(value);
}

/// The draw of one step: every step that makes sense now, with its weight.
class Draw {
 public:
  Draw(const Stage& stage, const Temper& temper, Random& random)
      : stage_(stage), world_(stage.world()), temper_(temper), random_(random) {
    weights_.reserve(40);
  }

  Step step() {
    const bool isDisturbed = random_.oneIn(temper_.disturbance);
    weighLoop();
    weighAnswers();
    weighChildren(isDisturbed);
    if (isDisturbed) weighSurroundings();
    if (!world_.isEnding) {
      if (isDisturbed) weighDesktop();
      if (!stage_.window().window().isVisible()) add(12, menu(MenuCommand::downloader));
      if (stage_.canUseWindow()) weighWindow(isDisturbed);
    }
    return drawn();
  }

 private:
  void add(unsigned weight, Step step) { weights_.emplace_back(step, weight); }
  static Step menu(MenuCommand command) { return {Deed::menu, byte(command), 0}; }
  std::uint8_t anyByte() { return byte(random_.below(256)); }

  Step drawn() {
    std::size_t total = 0;
    for (const auto& entry : weights_) total += entry.second;
    if (total == 0) return {};
    std::size_t left = random_.below(total);
    for (const auto& [step, weight] : weights_) {
      if (left < weight) return step;
      left -= weight;
    }
    return {};
  }

  void weighLoop() {
    constexpr std::size_t shortSpans = 3;
    add(6 * temper_.haste, {Deed::turn, 0, 0});
    add(2 * temper_.haste, {Deed::settle, 0, 0});
    const std::size_t delay = random_.oneIn(6) ? random_.below(delayChoices) : 0;
    add(6, {Deed::timer, anyByte(), byte(delay)});
    add(8, {Deed::pass, byte(random_.below(random_.oneIn(6) ? spanChoices : shortSpans)), 0});
  }

  void weighAnswers() {
    std::vector<const World::Request*> open;
    for (const World::Request& request : world_.requests) {
      if (!request.isAnswered) open.push_back(&request);
    }
    if (!open.empty()) {
      const std::size_t which = random_.below(open.size());
      add(40, {Deed::answer, byte(which), byte(answerTo(*open[which]))});
    }
    if (!world_.panels.empty()) {
      constexpr std::array<std::uint8_t, 8> choices = {0, 0, 0, 0, 1, 1, 2, 3};
      add(30, {Deed::panel, choices.at(random_.below(choices.size())), 0});
    }
    if (!world_.alerts.empty()) add(12, {Deed::alert, byte(random_.below(2)), 0});
  }

  Answer one(std::initializer_list<Answer> answers) {
    return *(answers.begin() + random_.below(answers.size()));
  }

  Answer answerTo(const World::Request& request) {
    if (random_.oneIn(60)) return static_cast<Answer>(random_.below(static_cast<std::size_t>(Answer::count)));
    if (!random_.percent(temper_.goodAnswers)) {
      return one({Answer::refusedConnection, Answer::timedOut, Answer::notHttp, Answer::envelope500,
                  Answer::plain500, Answer::garbage200, Answer::empty204, Answer::tokenEmpty,
                  Answer::token503, Answer::failedWithReason, Answer::failedWithoutReason,
                  Answer::completedInUpperCase, Answer::completedOtherKind, Answer::file206,
                  Answer::file404});
    }
    switch (request.kind) {
      case RequestKind::health:
        return one({Answer::token200, Answer::token200, Answer::tokenInLowerCase});
      case RequestKind::probe:
      case RequestKind::jobs:
        return one({Answer::queued, Answer::queued, Answer::downloading});
      case RequestKind::poll:
        return answerToPoll(request);
      case RequestKind::cancel:
        return one({Answer::null200, Answer::queued});
      case RequestKind::result:
        break;
    }
    return Answer::file200;
  }

  Answer answerToPoll(const World::Request& request) {
    if (random_.oneIn(3)) {
      return one({Answer::queued, Answer::probing, Answer::downloading, Answer::processing});
    }
    const auto& downloads = world_.jobsRunning;
    const std::string job = request.path.substr(std::string("/jobs/").size());
    if (std::find(downloads.begin(), downloads.end(), job) != downloads.end()) {
      return one({Answer::completedFile, Answer::completedFile, Answer::completedNamelessFile});
    }
    return one({Answer::completedRich, Answer::completedRich, Answer::completedRich, Answer::completedBare,
                Answer::completedEmpty, Answer::completedVideo, Answer::completedTracks});
  }

  void weighChildren(bool isDisturbed) {
    bool isAnyRunning = false;
    bool isAnyServing = false;
    bool isAnyUntold = false;
    for (const auto& child : world_.children) {
      isAnyRunning |= child->isRunning;
      isAnyServing |= child->isRunning && child->service == World::Service::healthy;
      isAnyUntold |= !child->isRunning && !child->isTold;
    }
    if (isAnyUntold) add(6, {Deed::notice, anyByte(), 0});
    if (!isAnyRunning) return;
    if (!isAnyServing) add(14, {Deed::child, anyByte(), byte(ChildDeed::serve)});
    if (!isDisturbed) return;
    add(temper_.unrest, {Deed::child, anyByte(), anyByte()});
    add(temper_.unrest, {Deed::child, anyByte(), byte(ChildDeed::die)});
  }

  void weighSurroundings() {
    add(temper_.unrest, {Deed::port, anyByte(), 0});
    if (world_.foreign != World::Service::none) add(4, {Deed::port, 0, 0});
    add(temper_.unrest, {Deed::machine, anyByte(), anyByte()});
    add(temper_.unrest, {Deed::machine, byte(MachineState::sound), 0});
    add(temper_.unrest, {Deed::disk, anyByte(), anyByte()});
  }

  void weighDesktop() {
    add(3, menu(MenuCommand::downloader));
    add(4, menu(MenuCommand::toggle));
    add(3, {Deed::link, anyByte(), 0});
    if (random_.oneIn(4)) add(1, menu(random_.oneIn(2) ? MenuCommand::videoImport : MenuCommand::log));
    if (random_.oneIn(4)) add(1, {Deed::pasteboard, anyByte(), 0});
    if (random_.oneIn(16)) add(3, menu(MenuCommand::quit));
    if (random_.oneIn(16)) add(3, {Deed::endSession, 0, 0});
  }

  void weighWindow(bool isDisturbed) {
    const bool isAnalyzed = stage_.window().fields().analyzedJob.has_value();
    const std::array buttons = {std::pair{Button::analyze, isAnalyzed ? 2U : 20U},
                                std::pair{Button::download, 20U},
                                std::pair{Button::cancel, isDisturbed ? 20U : 1U},
                                std::pair{Button::reveal, 2U}, std::pair{Button::paste, 1U}};
    for (const auto& [button, weight] : buttons) {
      if (Stage::answersUser(stage_.button(button))) add(weight, {Deed::click, byte(button), 0});
    }
    const ImportForm& form = stage_.window().form();
    const bool isGoodLink = form.urlField.text().find("https://") != std::string::npos;
    if (!isGoodLink) add(16, {Deed::edit, byte(Edit::link), byte(random_.below(2))});
    if (!form.permissionCheck.isOn()) add(10, {Deed::edit, byte(Edit::permission), 0});
    constexpr std::array outputs = {Edit::access, Edit::mode, Edit::quality, Edit::track, Edit::format};
    add(2, {Deed::edit, byte(outputs.at(random_.below(outputs.size()))), anyByte()});
    if (!isDisturbed) return;
    add(1, {Deed::edit, byte(Edit::link), anyByte()});
    add(1, {Deed::edit, byte(Edit::permission), 0});
    add(4, {Deed::close, 0, 0});
  }

  const Stage& stage_;
  const World& world_;
  const Temper& temper_;
  Random& random_;
  std::vector<std::pair<Step, unsigned>> weights_;
};

}  // namespace

Temper drawTemper(Random& random) {
  Temper temper{};
  temper.goodAnswers = std::array{55U, 85U, 97U}.at(random.below(3));
  temper.haste = std::array{1U, 4U, 12U}.at(random.below(3));
  temper.unrest = std::array{1U, 1U, 4U}.at(random.below(3));
  temper.disturbance = std::array{1U, 6U, 12U}.at(random.below(3));
  return temper;
}

Step drawStep(const Stage& stage, const Temper& temper, Random& random) {
  return Draw(stage, temper, random).step();
}

}  // namespace zunto::simulation
