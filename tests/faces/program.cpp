#include "tests/faces/program.h"

#include <algorithm>
#include <utility>

#include "app/entry.h"
#include "app/fixed_addresses.h"

namespace zunto::testing {
namespace {

using Kind = SeenControl::Kind;

/// What a control is known by: the name where it has no text of its own.
const std::string& knownBy(const SeenControl& control) {
  return control.name.empty() ? control.text : control.name;
}

}  // namespace

std::vector<std::string> textsOf(const SeenWindow& window, Kind kind) {
  std::vector<std::string> texts;
  for (const SeenControl& control : window.controls) {
    if (control.kind == kind) texts.push_back(control.text);
  }
  return texts;
}

FaceProgram::FaceProgram() : face_(makeFace()), executor_(std::make_unique<Executor>(clock_)) {
  for (const char* tool : {"node", "yt-dlp", "ffmpeg", "ffprobe"}) {
    files_.addExecutable("/app/resources/runtime/bin/" + std::string(tool));
  }
  files_.addFile("/app/resources/processor/src/index.mjs");
  files_.addFolder(host_.home);
  processorIsSilent();
  http_.answerAlways("GET", "/health", {.headers = {{"X-ZUNTO-Session-Token", "token"}}});
  delegate_ = makeDelegate();
}

// Suspended tasks hold the delegate and what it uses, so they go before it and before the face.
FaceProgram::~FaceProgram() {
  executor_.reset();
  delegate_.reset();
  face_->runNativeLoop();
}

std::shared_ptr<HelperDelegate> FaceProgram::makeDelegate() {
  const FaceCapabilities native = face_->capabilities();
  return makeHelperDelegate(fixedAddresses(), {.executor = *executor_,
                                               .application = application_,
                                               .processSpawner = processes_,
                                               .commandRunner = commands_,
                                               .fileSystem = files_,
                                               .outputFiles = files_,
                                               .host = host_,
                                               .httpSession = http_,
                                               .statusBar = native.statusBar,
                                               .windowSystem = native.windowSystem,
                                               .urlEvents = native.urlEvents,
                                               .alerts = native.alerts,
                                               .savePanels = native.savePanels,
                                               .pasteboard = native.pasteboard,
                                               .beeper = native.beeper,
                                               .workspace = native.workspace});
}

void FaceProgram::processorAnswers() { commands_.answer(0, R"({"status":"ok"})"); }

void FaceProgram::processorIsSilent() { commands_.answer(7, ""); }

void FaceProgram::analysisGives(const std::string& completedJob) {
  http_.answerAlways("POST", "/probe", {.status = 202, .body = R"({"jobId":"p","status":"queued"})"});
  http_.answerAlways("GET", "/jobs/p", {.body = completedJob});
}

void FaceProgram::downloadEndsWith(const std::string& lastJob, int polls) {
  http_.answerAlways("POST", "/jobs", {.status = 202, .body = R"({"jobId":"d","status":"queued"})"});
  for (int i = 1; i < polls; ++i) {
    http_.answer("GET", "/jobs/d",
                 {.body = R"({"jobId":"d","status":"downloading","progress":40,"stage":"Fetching"})"});
  }
  http_.answerAlways("GET", "/jobs/d", {.body = lastJob});
  http_.answerAlways("POST", "/jobs/d/cancel", {.body = "null"});
}

void FaceProgram::launch() {
  delegate_->applicationDidFinishLaunching();
  settle();
}

void FaceProgram::launchReady() {
  processorAnswers();
  launch();
  ASSERT_EQ(statusLine(), "Ready. Processing and browser access stay on this Mac.");
}

void FaceProgram::analyze(const std::string& link) {
  type("Media link", link);
  click("Analyze");
}

void FaceProgram::settle() {
  do {
    clock_.runTurns();
    face_->runNativeLoop();
  } while (clock_.runOneTurn());
}

void FaceProgram::advance(std::chrono::nanoseconds duration) {
  settle();
  clock_.advance(duration);
  settle();
}

SeenControl FaceProgram::control(const std::string& textOrName) {
  const SeenWindow window = look();
  const auto found = std::find_if(window.controls.begin(), window.controls.end(),
                                  [&](const SeenControl& one) { return knownBy(one) == textOrName; });
  if (found != window.controls.end()) return *found;
  ADD_FAILURE() << "there is no control " << textOrName;
  return {};
}

bool FaceProgram::isVisible(const std::string& textOrName) {
  const SeenWindow window = look();
  return std::any_of(window.controls.begin(), window.controls.end(),
                     [&](const SeenControl& one) { return knownBy(one) == textOrName; });
}

std::string FaceProgram::statusLine() {
  const std::vector<std::string> labels = textsOf(look(), Kind::label);
  return labels.empty() ? std::string() : labels.back();
}

SeenMenuItem FaceProgram::menuItem(std::size_t index) { return face_->status().openMenu().at(index); }

void FaceProgram::click(const std::string& title) {
  face_->window().click(title);
  settle();
}

void FaceProgram::type(const std::string& name, const std::string& text) {
  face_->window().type(name, text);
  settle();
}

void FaceProgram::choose(const std::string& popUp, std::size_t index) {
  face_->window().choose(popUp, index);
  settle();
}

void FaceProgram::chooseInMenu(const std::string& title) {
  face_->status().choose(title);
  settle();
}

}  // namespace zunto::testing
