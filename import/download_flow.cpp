// The download job: starts it, follows it by polling, cancels it, and the failure path that it shares with
// the analysis, whose probe is a job too.
#include <chrono>
#include <utility>

#include "async/fatal.h"
#include "import/downloader_window_controller.h"
#include "protocol/helper_error.h"
#include "protocol/text.h"

namespace zunto {

namespace {

constexpr std::chrono::milliseconds pollInterval{700};

}  // namespace

void DownloaderWindowController::startDownload() {
  mainThread_.check("startDownload");
  startCurrentTask(runDownload());
}

Task<void> DownloaderWindowController::runDownload() {
  if (!analyzedJob) co_return;
  const std::optional<std::size_t> mode = form_.modePopup.selectedIndex();
  if (!mode || *mode > static_cast<std::size_t>(OutputMode::subtitle)) {
    fatalError("the output mode pop-up has no mode selected");
  }
  RequestBody body = jobBody(static_cast<OutputMode>(*mode));
  setBusy(true, "Starting local download…");
  form_.cancelButton.setHidden(false);
  try {
    const Task<MediaJob> creation = client_.request<MediaJob>("jobs", HttpMethod::post, std::move(body));
    const MediaJob accepted = co_await creation;
    activeJobId = accepted.jobId;
    const Task<void> polling = pollJob(accepted.jobId, false);
    co_await polling;
    pollTask.reset();
  } catch (const Error& failure) {
    showFailure(failure);
  }
}

// The link goes out exactly as the field shows it now, and permission is not asked again.
RequestBody DownloaderWindowController::jobBody(OutputMode mode) const {
  RequestBody body = requestBody(form_.urlField.text(), mode);
  switch (mode) {
    case OutputMode::video:
      body.emplace_back("quality", form_.qualityPopup.selectedTitle().value_or(std::string()));
      break;
    case OutputMode::audio:
      break;
    case OutputMode::subtitle:
      addSubtitleKeys(body);
      break;
  }
  return body;
}

void DownloaderWindowController::addSubtitleKeys(RequestBody& body) const {
  const std::optional<std::size_t> track = form_.subtitlePopup.selectedIndex();
  if (!analyzedJob || !analyzedJob->subtitles || !track || *track >= analyzedJob->subtitles->size()) return;
  const bool isVtt =
      form_.subtitleFormatPopup.selectedIndex() == static_cast<std::size_t>(SubtitleFormat::vtt);
  body.emplace_back("subtitleLanguage", (*analyzedJob->subtitles)[*track].id);
  body.emplace_back("subtitleFormat", isVtt ? "vtt" : "srt");
}

Task<void> DownloaderWindowController::pollJob(std::string jobId, bool forAnalysis) {
  for (;;) {
    const bool cancelled = co_await isCancelled();
    if (cancelled) co_return;
    const Task<MediaJob> poll = client_.request<MediaJob>("jobs/" + jobId, HttpMethod::get, std::nullopt);
    MediaJob job = co_await poll;
    form_.progress.setValue(job.progress.value_or(0));
    showStatus(job.stage.value_or(capitalizedWords(job.status)));
    if (!isRunningStatus(job.status)) {
      const Task<void> ending = finishJob(std::move(job), forAnalysis);
      co_await ending;
      co_return;
    }
    co_await capabilities_.executor.sleep(pollInterval);
  }
}

Task<void> DownloaderWindowController::finishJob(MediaJob job, bool forAnalysis) {
  activeJobId.reset();
  form_.cancelButton.setHidden(true);
  if (job.status != completedStatus) {
    if (job.error) throw HelperError(HelperErrorCode::jobDidNotComplete, job.error->message);
    throw HelperError(HelperErrorCode::jobDidNotComplete);
  }
  if (forAnalysis) {
    showAnalysis(std::move(job));
  } else {
    const Task<void> saving = saveResult(std::move(job));
    co_await saving;
  }
}

// It clears pollTask even when a newer task is stored there by now.
void DownloaderWindowController::showFailure(const Error& failure) {
  pollTask.reset();
  activeJobId.reset();
  form_.cancelButton.setHidden(true);
  setBusy(false, failure.message());
  showStatus(failure.message());
  markProblem();
  capabilities_.beeper.beep();
}

void DownloaderWindowController::cancelJob() {
  mainThread_.check("cancelJob");
  if (!activeJobId) return;
  if (pollTask) pollTask->cancel();
  spawn(requestCancellation(*activeJobId));
}

Task<void> DownloaderWindowController::requestCancellation(std::string jobId) {
  try {
    const Task<std::optional<MediaJob>> cancellation = client_.request<std::optional<MediaJob>>(
        "jobs/" + jobId + "/cancel", HttpMethod::post, RequestBody());
    static_cast<void>(co_await cancellation);
  } catch (const Error&) {
    // The user has let go of the job; whether the processor heard it changes nothing for him.
  }
  activeJobId.reset();
  setBusy(false, "Download cancelled.");
  form_.cancelButton.setHidden(true);
}

}  // namespace zunto
