#include "world.h"

#include <algorithm>

#include "platform/system_error.h"

namespace zunto::simulation {

namespace {

constexpr std::array<std::string_view, 18> deedNames = {
    "probed",     "sent",       "launched",       "interrupted", "asked to terminate later",
    "opened log", "closed log", "alert",          "panel",       "beeped",
    "activated",  "revealed",   "opened",         "removed",     "moved",
    "terminated", "listens",    "listens no more"};

RequestKind kindOf(const std::string& method, const std::string& path) {
  if (path == "/health") return RequestKind::health;
  if (path == "/probe") return RequestKind::probe;
  if (path == "/jobs") return RequestKind::jobs;
  if (path.ends_with("/result")) return RequestKind::result;
  return method == "POST" ? RequestKind::cancel : RequestKind::poll;
}

bool isJob(Answer how) { return how >= Answer::queued && how <= Answer::completedInUpperCase; }
bool isRunningJob(Answer how) { return how >= Answer::queued && how <= Answer::processing; }

constexpr std::string_view qualities = R"(,"formats":[{"quality":"1080p"},{"quality":"720p"}])";
constexpr std::string_view tracks =
    R"(,"subtitles":[{"id":"en-1","label":"English","original":true},{"id":"de-1","language":"de","automatic":true},{"id":"ja-1"}])";

/// What stands behind "jobId" in a job of that kind.
std::string membersOf(Answer how) {
  switch (how) {
    case Answer::queued:
      return R"("status":"queued")";
    case Answer::probing:
      return R"("status":"probing","progress":5)";
    case Answer::downloading:
      return R"("status":"downloading","progress":42.5,"stage":"Fetching the video")";
    case Answer::processing:
      return R"("status":"processing","progress":99)";
    case Answer::completedRich:
      return R"("status":"completed","title":"A film","duration":3725)" + std::string(qualities) +
             std::string(tracks) + R"(,"recommendedSubtitleId":"ja-1")";
    case Answer::completedEmpty:
      return R"("status":"completed","title":"Nothing","formats":[],"subtitles":[],"stage":"All done")";
    case Answer::completedVideo:
      return R"("status":"completed","progress":100,"duration":59.9,"formats":[{"quality":"480p"}])";
    case Answer::completedTracks:
      return R"("status":"completed","title":"A talk")" + std::string(tracks) +
             R"(,"recommendedSubtitleId":"de-1")";
    case Answer::completedFile:
      return R"("status":"completed","progress":100,"result":{"kind":"file","filename":"film.mp4"})";
    case Answer::completedNamelessFile:
      return R"("status":"completed","result":{"kind":"file"})";
    case Answer::completedOtherKind:
      return R"("status":"completed","result":{"kind":"stream","filename":"film.mp4"})";
    case Answer::failedWithReason:
      return R"("status":"failed","error":{"message":"The video is private."})";
    case Answer::failedWithoutReason:
      return R"("status":"failed")";
    case Answer::completedInUpperCase:
      return R"("status":"COMPLETED","result":{"kind":"file","filename":"film.mp4"})";
    default:
      return R"("status":"completed")";
  }
}

/// The identifier of the job that an answer to `request` speaks of. A poll's answer bears one of its own, so
/// that a mix-up of the two is seen.
std::string jobIn(const World::Request& request) {
  if (request.kind == RequestKind::poll) return request.path.substr(std::string("/jobs/").size()) + "-own";
  return "job-" + std::to_string(request.number);
}

HttpResponse responseTo(const World::Request& request, Answer how) {
  const std::string token = "token-" + std::to_string(request.number);
  switch (how) {
    case Answer::notHttp:
      return {};
    case Answer::envelope500:
      return {{500, {}}, R"({"error":{"message":")" + std::string(envelopeText) + R"("}})"};
    case Answer::plain500:
      return {{500, {}}, "out of order"};
    case Answer::garbage200:
      return {{200, {}}, R"({"jobId":7})"};
    case Answer::empty204:
      return {{204, {}}, ""};
    case Answer::token200:
      return {{200, {{"X-ZUNTO-Session-Token", token}}}, R"({"status":"ok"})"};
    case Answer::token503:
      return {{503, {{"X-ZUNTO-Session-Token", token}}}, ""};
    case Answer::tokenInLowerCase:
      return {{200, {{"x-zunto-session-token", token}}}, R"({"status":"ok"})"};
    case Answer::tokenEmpty:
      return {{200, {{"X-ZUNTO-Session-Token", ""}}}, R"({"status":"ok"})"};
    case Answer::tokenAbsent:
      return {{200, {}}, R"({"status":"ok"})"};
    case Answer::null200:
      return {{200, {}}, "null"};
    case Answer::file200:
      return {{200, {}}, "bytes"};
    case Answer::file206:
      return {{206, {}}, "byt"};
    case Answer::file404:
      return {{404, {}}, ""};
    default:
      return {{200, {}}, R"({"jobId":")" + jobIn(request) + R"(",)" + membersOf(how) + "}"};
  }
}

std::optional<SystemError> transportFailure(Answer how) {
  if (how == Answer::refusedConnection) return SystemError(std::string(refusedText));
  if (how == Answer::timedOut) return SystemError(std::string(timedOutText));
  return std::nullopt;
}

std::optional<std::string_view> headerOf(const HttpRequest& request, std::string_view name) {
  for (const auto& [key, value] : request.headers) {
    if (key == name) return value;
  }
  return std::nullopt;
}

std::optional<std::size_t> placeOf(const std::filesystem::path& path) {
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (path == places.at(i).path) return i;
  }
  return std::nullopt;
}

constexpr std::array<std::string_view, static_cast<std::size_t>(Answer::count)> answerNames = {
    "refused connection",
    "time-out",
    "no HTTP",
    "500 with a reason",
    "500",
    "no record",
    "204",
    "token",
    "503 with a token",
    "token in lower case",
    "empty token",
    "no token",
    "queued",
    "probing",
    "downloading",
    "processing",
    "completed, rich",
    "completed, bare",
    "completed, empty",
    "completed, video",
    "completed, tracks",
    "completed, file",
    "completed, no name",
    "completed, other kind",
    "failed with a reason",
    "failed",
    "COMPLETED",
    "null",
    "file",
    "206",
    "404"};

}  // namespace

std::string_view nameOf(Answer answer) { return answerNames.at(static_cast<std::size_t>(answer)); }

std::string inWords(const Did& did) {
  std::string words(deedNames.at(static_cast<std::size_t>(did.what)));
  if (did.what == What::launched || did.what == What::interrupted || did.what == What::terminateAsked) {
    words += " child " + std::to_string(did.number);
  }
  if (!did.text.empty()) words += " \"" + did.text + "\"";
  return words;
}

// The main loop.

class World::LoopTimer final : public Timer {
 public:
  LoopTimer(World& world, std::uint64_t number, std::unique_ptr<Timer> timer)
      : world_(world), number_(number), timer_(std::move(timer)) {}
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;
  ~LoopTimer() override {
    std::erase_if(world_.timers, [this](const ProgramTimer& timer) { return timer.number == number_; });
  }

 private:
  World& world_;
  std::uint64_t number_;
  std::unique_ptr<Timer> timer_;
};

nanoseconds World::LoopClock::now() const { return world_.clock.now(); }

std::unique_ptr<Timer> World::LoopClock::callLater(nanoseconds delay, Turn turn) {
  const std::uint64_t number = world_.timersSoFar_++;
  const bool isTick = std::exchange(world_.isTicking_, false);
  world_.timers.push_back({number, now() + std::max(delay, nanoseconds::zero()), delay, isTick});
  return std::make_unique<LoopTimer>(
      world_, number,
      world_.clock.callLater(delay, [&world = world_, number, isTick, turn = std::move(turn)] {
        std::erase_if(world.timers, [number](const ProgramTimer& timer) { return timer.number == number; });
        world.witness_.timerElapsed(number);
        world.isTicking_ = isTick;
        turn();
        world.isTicking_ = false;
      }));
}

void World::LoopClock::post(Turn turn) {
  ++world_.programTurns;
  world_.clock.post([&world = world_, turn = std::move(turn)] {
    --world.programTurns;
    world.witness_.programTurn();
    turn();
  });
}

World::World(Witness& witness) : witness_(witness) {}

World::~World() = default;

// The application.

void World::terminate() {
  note(What::terminated);
  if (terminating) terminating();
}

// Processes.

class World::ChildHandle final : public ChildProcess {
 public:
  ChildHandle(World& world, std::size_t index, std::shared_ptr<Child> child)
      : world_(world), index_(index), child_(std::move(child)) {}

  [[nodiscard]] bool isRunning() const override { return child_->isRunning; }

  void interrupt() override {
    world_.note(What::interrupted, static_cast<std::int64_t>(index_));
    if (!child_->isRunning) return;
    child_->interrupts.push_back(world_.clock.now());
    if (!child_->ignoresInterrupt) child_->isRunning = false;
  }

  void terminateAfter(nanoseconds delay) override {
    world_.note(What::terminateAsked, static_cast<std::int64_t>(index_));
    child_->terminateCalls.push_back(world_.clock.now() + delay);
    world_.terminateTimers_.push_back(world_.clock.callLater(delay, [child = child_, &clock = world_.clock] {
      if (!child->isRunning) return;
      child->terminates.push_back(clock.now());
      if (!child->ignoresTerminate) child->isRunning = false;
    }));
  }

 private:
  World& world_;
  std::size_t index_;
  std::shared_ptr<Child> child_;
};

std::shared_ptr<ChildProcess> World::launch(const ChildSpec& spec, std::function<void()> ended) {
  if (refusesLaunches) throw SystemError(std::string(launchRefusal));
  if (!spec.output || spec.output->descriptor() < 0) throw SystemError("The log is not open.");
  auto child = std::make_shared<Child>();
  child->ignoresInterrupt = ignoresInterrupt;
  child->ended = std::move(ended);
  children.push_back(child);
  note(What::launched, static_cast<std::int64_t>(children.size()) - 1);
  return std::make_shared<ChildHandle>(*this, children.size() - 1, std::move(child));
}

bool World::tellOfAnEnd(std::size_t which) {
  std::vector<std::shared_ptr<Child>> ended;
  for (const auto& child : children) {
    if (!child->isRunning && !child->isTold) ended.push_back(child);
  }
  if (ended.empty()) return false;
  const auto child = ended[which % ended.size()];
  child->isTold = true;
  clock.post([this, child] {
    toldOfAnEnd = true;
    witness_.childEnded();
    const auto call = std::move(child->ended);
    call();
  });
  return true;
}

World::Service World::service() const {
  if (foreign != Service::none) return foreign;
  for (const auto& child : children) {
    if (child->isRunning && child->service != Service::none) return child->service;
  }
  return Service::none;
}

CommandResult World::run(const std::filesystem::path& executable, const std::vector<std::string>& arguments) {
  constexpr int couldNotConnect = 7;
  constexpr int httpError = 22;
  constexpr int timeOut = 28;
  note(What::probed);
  lastProbe = isHealthy();
  if (!hasCurl) throw SystemError("\"curl\" could not be started.");
  if (executable != "/usr/bin/curl" || arguments.empty() ||
      arguments.back() != "http://127.0.0.1:43127/health") {
    return {couldNotConnect, {}};
  }
  switch (service()) {
    case Service::healthy:
      return {0, R"({"status":"ok"})"};
    case Service::unwell:
      return {0, R"({"status":"OK"})"};
    case Service::failing:
      return {httpError, {}};
    case Service::slow:
      clock.block(slowProbe);
      return {timeOut, {}};
    case Service::none:
      break;
  }
  return {couldNotConnect, {}};
}

// Files.

class World::LogFile final : public OutputFile {
 public:
  explicit LogFile(World& world) : world_(world) { ++world_.openLogs; }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile() override { release(); }

  void seekToEnd() override {
    if (world_.logFault == LogFault::seek) throw SystemError(std::string(logRefusal));
  }
  void close() override {
    if (!isOpen_) return;
    world_.note(What::logClosed);
    release();
    if (world_.logFault == LogFault::close) throw SystemError(std::string(logRefusal));
  }
  [[nodiscard]] int descriptor() const override { return isOpen_ ? 1000 : -1; }

 private:
  void release() {
    if (std::exchange(isOpen_, false)) --world_.openLogs;
  }

  World& world_;
  bool isOpen_ = true;
};

bool World::exists(const std::filesystem::path& path) const {
  if (const auto place = placeOf(path)) return isTaken.at(*place);
  if (path.native().ends_with("/index.mjs")) return missingComponent != components.size() - 1;
  return path == logPath;
}

bool World::isExecutableFile(const std::filesystem::path& path) const {
  return !missingComponent || !path.native().ends_with("/" + std::string(components.at(*missingComponent)));
}

void World::createFolder(const std::filesystem::path&) {
  if (logFault == LogFault::folder) throw SystemError(std::string(logRefusal));
}

void World::removeFile(const std::filesystem::path& path) {
  if (refusesRemoval) throw SystemError(std::string(notRemovableText));
  const auto place = placeOf(path);
  if (!place || !isTaken.at(*place)) throw SystemError("There is no such file.");
  isTaken.at(*place) = false;
  note(What::removed, 0, path.string());
}

void World::requireSavable(const std::filesystem::path& path) {
  const auto place = placeOf(path);
  if (!place || !places.at(*place).isSavable) throw SystemError(std::string(notSavableText));
}

std::unique_ptr<OutputFile> World::openForWriting(const std::filesystem::path& path) {
  if (logFault == LogFault::file || path != logPath) throw SystemError(std::string(logRefusal));
  note(What::logOpened);
  return std::make_unique<LogFile>(*this);
}

// Requests.

class World::Transfer final : public HttpTransfer {
 public:
  Transfer(World& world, std::uint64_t number) : world_(world), number_(number) {}
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() override {
    std::erase_if(world_.requests, [this](const Request& request) { return request.number == number_; });
  }

 private:
  World& world_;
  std::uint64_t number_;
};

World::Request& World::record(const HttpRequest& request) {
  constexpr std::string_view base = "http://127.0.0.1:43127";
  Request open;
  open.number = requestsSoFar++;
  open.method = request.method;
  open.path = request.url.starts_with(base) ? request.url.substr(base.size()) : request.url;
  open.kind = kindOf(open.method, open.path);
  const auto token = headerOf(request, "Authorization");
  open.hasToken = token.has_value();
  open.token = std::string(token.value_or(""));
  open.hasContentType = headerOf(request, "Content-Type") == "application/json";
  std::string text = open.method + " " + open.path;
  if (open.hasToken) text += " " + open.token;
  if (request.body) text += " " + *request.body;
  note(What::sent, 0, std::move(text));
  justSent.push_back(open);
  return requests.emplace_back(std::move(open));
}

std::unique_ptr<HttpTransfer> World::send(HttpRequest request,
                                          std::function<void(Outcome<HttpResponse>)> done) {
  Request& open = record(request);
  open.done = std::move(done);
  return std::make_unique<Transfer>(*this, open.number);
}

std::unique_ptr<HttpTransfer> World::download(HttpRequest request, std::filesystem::path folder,
                                              std::function<void(Outcome<HttpDownload>)> done) {
  Request& open = record(request);
  open.folder = std::move(folder);
  open.downloaded = std::move(done);
  return std::make_unique<Transfer>(*this, open.number);
}

bool World::answer(std::size_t which, Answer how) {
  std::vector<Request*> open;
  for (Request& request : requests) {
    if (!request.isAnswered) open.push_back(&request);
  }
  if (open.empty()) return false;
  Request& request = *open[which % open.size()];
  request.isAnswered = true;
  clock.post([this, number = request.number, how] { deliver(number, how); });
  return true;
}

void World::deliver(std::uint64_t number, Answer how) {
  const auto open = std::find_if(requests.begin(), requests.end(),
                                 [number](const Request& request) { return request.number == number; });
  if (open == requests.end()) return;
  const Request request = std::move(*open);
  requests.erase(open);
  followJobs(request, how);
  witness_.answered(number, how);
  const std::optional<SystemError> failure = transportFailure(how);
  if (request.done) {
    if (failure) return request.done(*failure);
    return request.done(responseTo(request, how));
  }
  if (failure) return request.downloaded(*failure);
  const auto moving = [this](const testing::TemporaryFileRecord& file, const std::filesystem::path& to) {
    if (refusesMoves || exists(to) || file.folder != to.parent_path()) {
      throw SystemError(std::string(notMovableText));
    }
    isTaken.at(placeOf(to).value()) = true;
    ++saves;
    note(What::moved, 0, to.string());
  };
  auto record = std::make_shared<testing::TemporaryFileRecord>();
  record->folder = request.folder;
  temporaryFiles.push_back(record);
  request.downloaded(HttpDownload{responseTo(request, how).head,
                                  std::make_unique<testing::FakeTemporaryFile>(std::move(record), moving)});
}

void World::followJobs(const Request& request, Answer how) {
  if (!isJob(how)) return;
  if (request.kind == RequestKind::jobs) jobsRunning.push_back(jobIn(request));
  if (request.kind == RequestKind::poll && !isRunningJob(how)) {
    std::erase(jobsRunning, request.path.substr(std::string("/jobs/").size()));
  }
}

// The desktop.

void World::setHandler(Handler newHandler) {
  note(What::listening);
  handler = std::move(newHandler);
}

void World::removeHandler() {
  note(What::notListening);
  handler = nullptr;
}

bool World::handOver(std::size_t link) {
  clock.post([this, link] {
    if (!handler) return;
    witness_.linkCame(link);
    UrlEvent event;
    if (const auto& text = handedLinks.at(link).text) event.directObject = UrlEventObject{std::string(*text)};
    const Handler call = handler;
    call(event);
  });
  return true;
}

void World::showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) {
  note(What::alertShown, static_cast<std::int64_t>(alert.buttons.size()),
       alert.messageText + "|" + alert.informativeText);
  alerts.push_back(std::move(answered));
}

bool World::endAlert(std::size_t button) {
  if (alerts.empty()) return false;
  ++alertsEnding;
  clock.post([this, answered = std::move(alerts.front()), button] {
    --alertsEnding;
    witness_.alertEnded(button);
    answered(button);
  });
  alerts.pop_front();
  return true;
}

void World::showSavePanel(const SavePanel& panel,
                          std::function<void(std::optional<std::filesystem::path>)> chosen) {
  note(What::panelShown, 0, panel.title + "|" + panel.suggestedName);
  panels.push_back(std::move(chosen));
}

bool World::endPanel(std::optional<std::size_t> place) {
  if (panels.empty()) return false;
  clock.post([this, chosen = std::move(panels.front()), place] {
    witness_.panelEnded(place);
    if (!place) return chosen(std::nullopt);
    placeChosen = true;
    chosen(std::filesystem::path(places.at(*place).path));
  });
  panels.pop_front();
  return true;
}

}  // namespace zunto::simulation
