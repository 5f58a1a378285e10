// The analysis: checks the link, has the processor probe it and fills the form with what it found.
#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "import/downloader_window_controller.h"
#include "import/media_texts.h"
#include "protocol/text.h"

namespace zunto {

void DownloaderWindowController::analyze() {
  mainThread_.check("analyze");
  startCurrentTask(runAnalysis());
}

Task<void> DownloaderWindowController::runAnalysis() {
  if (!form_.permissionCheck.isOn()) {
    refuse("Confirm that you own this media or have permission to use it.");
    co_return;
  }
  // The processor decides which sites it supports; here any HTTPS link will do.
  const std::optional<Url> link = Url::parse(trimmed(form_.urlField.text()));
  if (!link || link->scheme() != "https") {
    refuse("Enter a valid HTTPS YouTube or Bilibili link.");
    co_return;
  }
  if (sessionToken.empty()) co_await readiness_.prepareSession();
  if (sessionToken.empty()) co_return;  // the step has said why
  resetAnalysis();
  setBusy(true, "Analyzing available formats…");
  try {
    const Task<void> analysis = probeLink(*link);
    co_await analysis;
    pollTask.reset();
  } catch (const Error& failure) {
    showFailure(failure);
  }
}

Task<void> DownloaderWindowController::probeLink(Url link) {
  RequestBody body = requestBody(link.absoluteString(), std::nullopt);
  const Task<MediaJob> probe = client_.request<MediaJob>("probe", HttpMethod::post, std::move(body));
  const MediaJob accepted = co_await probe;
  const Task<void> polling = pollJob(accepted.jobId, true);
  co_await polling;
}

void DownloaderWindowController::refuse(const std::string& reason) {
  showStatus(reason);
  markProblem();
  capabilities_.beeper.beep();
}

void DownloaderWindowController::resetAnalysis() {
  analyzedJob.reset();
  savedURL.reset();
  form_.revealButton.setHidden(true);
  form_.startButton.setEnabled(false);
  form_.progress.setValue(0);
}

void DownloaderWindowController::showAnalysis(MediaJob analyzed) {
  const MediaJob& job = analyzedJob.emplace(std::move(analyzed));
  form_.titleLabel.setText(job.title.value_or("Untitled media"));
  form_.detailLabel.setText(job.duration ? "Duration: " + formatDuration(*job.duration)
                                         : "Duration unavailable");
  fillQualities(job);
  fillSubtitles(job);
  form_.progress.setValue(ProgressBar::maximum);
  setBusy(false, "Analysis complete. Choose an output and save it to your Mac.");
  refreshStartButton();
}

void DownloaderWindowController::fillQualities(const MediaJob& job) {
  std::vector<std::string> titles;
  if (job.formats) {
    for (const MediaFormat& format : *job.formats) titles.push_back(format.quality);
  }
  if (titles.empty()) titles.emplace_back("No video quality available");
  form_.qualityPopup.setItems(std::move(titles));
}

void DownloaderWindowController::fillSubtitles(const MediaJob& job) {
  std::vector<std::string> titles;
  std::optional<std::size_t> recommended;
  if (job.subtitles) {
    for (const SubtitleTrack& track : *job.subtitles) {
      if (!recommended && track.id == job.recommendedSubtitleId) recommended = titles.size();
      titles.push_back(subtitleLabel(track));
    }
  }
  if (titles.empty()) titles.emplace_back("No subtitle tracks");
  form_.subtitlePopup.setItems(std::move(titles), recommended.value_or(0));
}

RequestBody DownloaderWindowController::requestBody(const std::string& sourceUrl,
                                                    std::optional<OutputMode> mode) const {
  RequestBody body = {{"sourceUrl", sourceUrl}, {"permissionConfirmed", true}};
  switch (static_cast<BrowserAccess>(form_.browserPopup.selectedIndex().value_or(0))) {
    case BrowserAccess::anonymous:
      break;
    case BrowserAccess::chrome:
      body.emplace_back("browserLogin", "chrome");
      break;
    case BrowserAccess::safari:
      body.emplace_back("browserLogin", "safari");
      break;
  }
  if (mode) {
    constexpr std::array modeNames = {"video", "audio", "subtitle"};
    body.emplace_back("mode", modeNames.at(static_cast<std::size_t>(*mode)));
  }
  return body;
}

}  // namespace zunto
