// The analysis: checks the link, has the processor probe it and fills the form with what it found.
#include <array>
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
  form_.statusLabel.setText(reason);
  capabilities_.beeper.beep();
}

void DownloaderWindowController::resetAnalysis() {
  analyzedJob.reset();
  savedURL.reset();
  form_.revealButton.setHidden(true);
  form_.startButton.setEnabled(false);
  form_.progress.setValue(0);
}

void DownloaderWindowController::showAnalysis(const MediaJob& job) {
  analyzedJob = job;
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
  form_.qualityPopup.removeAllItems();
  for (const MediaFormat& format : job.formats.value_or(std::vector<MediaFormat>())) {
    form_.qualityPopup.addItem(format.quality);
  }
  if (form_.qualityPopup.titles().empty()) form_.qualityPopup.addItem("No video quality available");
}

void DownloaderWindowController::fillSubtitles(const MediaJob& job) {
  const std::vector<SubtitleTrack> tracks = job.subtitles.value_or(std::vector<SubtitleTrack>());
  form_.subtitlePopup.removeAllItems();
  for (const SubtitleTrack& track : tracks) form_.subtitlePopup.addItem(subtitleLabel(track));
  if (tracks.empty()) form_.subtitlePopup.addItem("No subtitle tracks");
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    if (tracks[i].id != job.recommendedSubtitleId) continue;
    form_.subtitlePopup.selectIndex(i);
    break;
  }
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
