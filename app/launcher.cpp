// Launching, awaiting and stopping the processor, and the alert for everything that keeps it from starting.
#include <chrono>
#include <map>
#include <utility>

#include "app/helper_delegate.h"
#include "app/helper_status.h"
#include "async/callback_await.h"

namespace zunto {

namespace {

constexpr int maximumProbes = 60;
constexpr std::chrono::milliseconds probeInterval{150};
constexpr std::chrono::seconds interruptGrace{2};
constexpr std::size_t showLogButton = 1;
constexpr const char* couldNotStart = "ZUNTO Helper could not start";

/// A cancelled sleep counts as a completed one: a start sequence that gave up half-way would leave isStarting
/// set.
Task<void> sleepThroughCancellation(const Executor& executor, std::chrono::nanoseconds duration) {
  try {
    co_await executor.sleep(duration);
  } catch (const Cancelled&) {
  }
}

}  // namespace

/// What the application's resources folder must hold.
struct HelperDelegate::Components {
  explicit Components(const std::filesystem::path& resources)
      : toolFolder(resources / "runtime" / "bin"),
        node(toolFolder / "node"),
        ytDlp(toolFolder / "yt-dlp"),
        ffmpeg(toolFolder / "ffmpeg"),
        ffprobe(toolFolder / "ffprobe"),
        processorFolder(resources / "processor"),
        script(processorFolder / "src" / "index.mjs") {}

  std::filesystem::path toolFolder;
  std::filesystem::path node;
  std::filesystem::path ytDlp;
  std::filesystem::path ffmpeg;
  std::filesystem::path ffprobe;
  std::filesystem::path processorFolder;
  std::filesystem::path script;
};

Task<bool> HelperDelegate::startIfNeeded(bool openPage) {
  if (isStarting) co_return co_await probeHealth();
  isStarting = true;
  const bool isHealthy = co_await runStartSequence(openPage);
  isStarting = false;
  co_return isHealthy;
}

Task<bool> HelperDelegate::runStartSequence(bool openPage) {
  bool isHealthy = co_await probeHealth();
  if (isHealthy) {
    updateStatus(true, ownChildRuns());
  } else {
    isHealthy = co_await launchAndWait();
  }
  if (isHealthy && openPage) {
    capabilities_.workspace.openWebAddress(addresses_.videoImportPageURL.absoluteString());
  }
  co_return isHealthy;
}

Task<bool> HelperDelegate::launchAndWait() {
  const bool isLaunched = co_await launchProcessor();
  if (!isLaunched) co_return false;
  const bool isHealthy = co_await waitUntilHealthy();
  if (isHealthy) {
    updateStatus(true, true);
    co_return true;
  }
  stopProcessor();
  updateStatus(false, false);
  const Task<void> alert =
      showAlert(couldNotStart,
                "Port 43127 may already be in use, or a bundled component could not run. Open "
                "the local log for details.");
  co_await alert;
  co_return false;
}

// A child that is seen to have ended while it is still held ends the wait at once. One that its end notice
// has made forgotten does not: another processor may be about to answer.
Task<bool> HelperDelegate::waitUntilHealthy() {
  for (int probe = 1; probe <= maximumProbes; ++probe) {
    co_await sleepThroughCancellation(capabilities_.executor, probeInterval);
    const bool isHealthy = co_await probeHealth();
    if (isHealthy) co_return true;
    if (processor && !processor->isRunning()) co_return false;
  }
  co_return false;
}

Task<bool> HelperDelegate::launchProcessor() {
  if (processor) co_return false;
  const std::optional<std::filesystem::path> resources = capabilities_.host.resourcesFolder();
  if (!resources) co_return false;
  const Components components(*resources);
  if (const std::optional<std::string> missing = firstMissingComponent(components)) {
    std::string message = "A required bundled component is missing: ";
    message += *missing;
    message += ". Download a fresh copy of the app.";
    const Task<void> alert = showAlert("ZUNTO Helper is incomplete", std::move(message));
    co_await alert;
    co_return false;
  }
  std::string refusal;
  try {
    launch(components);
    co_return true;
  } catch (const SystemError& failure) {
    refusal = failure.message();
  }
  processor.reset();
  logHandle.reset();
  const Task<void> alert = showAlert(couldNotStart, refusal);
  co_await alert;
  co_return false;
}

std::optional<std::string> HelperDelegate::firstMissingComponent(const Components& components) const {
  const FileSystem& files = capabilities_.fileSystem;
  for (const auto& tool : {components.node, components.ytDlp, components.ffmpeg, components.ffprobe}) {
    if (!files.isExecutableFile(tool)) return tool.filename().string();
  }
  if (!files.exists(components.script)) return components.script.filename().string();
  return std::nullopt;
}

void HelperDelegate::launch(const Components& components) {
  logHandle = capabilities_.outputFiles.openForWriting(logFileURL());
  logHandle->seekToEnd();
  processor = capabilities_.processSpawner.launch(describeChild(components), terminationHandler());
  if (statusMenuItem) statusMenuItem->setTitle(std::string(startingStatusLine));
}

ChildSpec HelperDelegate::describeChild(const Components& components) const {
  const std::map<std::string, std::string> own = {
      {"HOST", "127.0.0.1"},
      {"PORT", "43127"},
      {"PATH", components.toolFolder.string() + ":/usr/bin:/bin"},
      {"YT_DLP_PATH", components.ytDlp.string()},
      {"FFMPEG_PATH", components.ffmpeg.string()},
      {"FFPROBE_PATH", components.ffprobe.string()},
      {"ZUNTO_DEPENDENCIES_VERIFIED", "1"},
      {"ZUNTO_HELPER_PARENT_PID", std::to_string(capabilities_.host.processIdentifier())},
      {"TEMP_ROOT", (capabilities_.host.temporaryFolder() / "zunto-video-import").string()},
  };
  std::map<std::string, std::string> environment = capabilities_.host.environment();
  for (const auto& [key, value] : own) environment.insert_or_assign(key, value);
  return {.executable = components.node,
          .arguments = {components.script.string()},
          .workingFolder = components.processorFolder,
          .environment = std::move(environment),
          .output = logHandle};
}

// It does not ask which child has ended: the end of one that was stopped earlier clears the fields of its
// successor too, and the next start sequence finds out by probing.
std::function<void()> HelperDelegate::terminationHandler() {
  return [weak = weak_from_this(), &executor = capabilities_.executor] {
    executor.spawn([](std::weak_ptr<HelperDelegate> delegate) -> Task<void> {
      const std::shared_ptr<HelperDelegate> self = delegate.lock();
      if (!self) co_return;
      self->processor.reset();
      self->logHandle.reset();
      self->updateStatus(false, false);
    }(weak));
  };
}

void HelperDelegate::stopProcessor() {
  if (!processor) return;
  if (processor->isRunning()) {
    processor->interrupt();
    processor->terminateAfter(interruptGrace);
  }
  processor.reset();
  if (logHandle) {
    try {
      logHandle->close();
    } catch (const SystemError&) {
      // Nothing of the helper's was in it, and the child has descriptors of its own.
    }
    logHandle.reset();
  }
  updateStatus(false, false);
}

Task<void> HelperDelegate::showAlert(std::string title, std::string message) {
  capabilities_.application.activateIgnoringOtherApps();
  const Alert alert{
      .messageText = std::move(title), .informativeText = std::move(message), .buttons = {"OK", "Show Log"}};
  const std::size_t button =
      co_await awaitCallbackUncancellable<std::size_t>([this, &alert](Completion<std::size_t> answered) {
        capabilities_.alerts.showAlert(alert, std::move(answered));
      });
  if (button == showLogButton) revealLogFile();
}

bool HelperDelegate::ownChildRuns() const { return processor && processor->isRunning(); }

}  // namespace zunto
