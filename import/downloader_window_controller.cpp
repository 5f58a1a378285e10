#include "import/downloader_window_controller.h"

#include <utility>

#include "protocol/text.h"

namespace zunto {

std::shared_ptr<DownloaderWindowController> DownloaderWindowController::create(
    EnsureHelper ensureHelper, const Url& helperBaseUrl, const Capabilities& capabilities) {
  auto controller = std::make_shared<DownloaderWindowController>(Creation(), std::move(ensureHelper),
                                                                 helperBaseUrl, capabilities);
  controller->bindActions();
  return controller;
}

DownloaderWindowController::DownloaderWindowController(Creation, EnsureHelper ensureHelperFunction,
                                                       const Url& helperBaseUrl,
                                                       const Capabilities& capabilities)
    : ImportFields{.ensureHelper = std::move(ensureHelperFunction)},
      capabilities_(capabilities),
      window_(form_.describeWindow()),
      client_(helperBaseUrl, capabilities.httpSession, sessionToken),
      readiness_(ensureHelper, client_, sessionToken, *this) {}

void DownloaderWindowController::bindActions() {
  using Action = void (DownloaderWindowController::*)();
  const auto bound = [weak = weak_from_this()](Action action) {
    return [weak, action] {
      if (const auto self = weak.lock()) (*self.*action)();
    };
  };
  form_.analyzeButton.setAction(bound(&DownloaderWindowController::analyze));
  form_.pasteButton.setAction(bound(&DownloaderWindowController::pasteLink));
  form_.modePopup.setAction(bound(&DownloaderWindowController::modeChanged));
  form_.startButton.setAction(bound(&DownloaderWindowController::startDownload));
  form_.cancelButton.setAction(bound(&DownloaderWindowController::cancelJob));
  form_.revealButton.setAction(bound(&DownloaderWindowController::revealSavedFile));
  window_.setWillClose(bound(&DownloaderWindowController::windowWillClose));
  view_ = capabilities_.windowSystem.makeView(window_);
}

void DownloaderWindowController::present(const std::optional<Url>& link) {
  mainThread_.check("present");
  if (link) form_.urlField.setText(link->absoluteString());
  window_.show();
  window_.center();
  capabilities_.application.activateIgnoringOtherApps();
  spawn(readiness_.prepareSession());
}

void DownloaderWindowController::pasteLink() {
  mainThread_.check("pasteLink");
  const std::optional<std::string> pasted = capabilities_.pasteboard.plainText();
  if (pasted) form_.urlField.setText(trimmed(*pasted));
}

void DownloaderWindowController::modeChanged() {
  mainThread_.check("modeChanged");
  const std::optional<std::size_t> mode = form_.modePopup.selectedIndex();
  const bool isVideo = mode == static_cast<std::size_t>(OutputMode::video);
  const bool isSubtitle = mode == static_cast<std::size_t>(OutputMode::subtitle);
  form_.qualityPopup.setHidden(!isVideo);
  form_.subtitlePopup.setHidden(!isSubtitle);
  form_.subtitleFormatPopup.setHidden(!isSubtitle);
  refreshStartButton();
}

void DownloaderWindowController::windowWillClose() {
  mainThread_.check("windowWillClose");
  if (pollTask) pollTask->cancel();
}

// Download follows the analysed job alone here, not the mode: only an applied analysis and a change of mode
// judge the mode too.
void DownloaderWindowController::setBusy(bool busy, const std::string& status) {
  form_.urlField.setEnabled(!busy);
  form_.pasteButton.setEnabled(!busy);
  form_.analyzeButton.setEnabled(!busy);
  form_.browserPopup.setEnabled(!busy);
  form_.startButton.setEnabled(!busy && analyzedJob.has_value());
  showStatus(status);
}

void DownloaderWindowController::showStatus(const std::string& status) {
  form_.statusLabel.setProblem(false);
  form_.statusLabel.setText(status);
}

void DownloaderWindowController::markProblem() { form_.statusLabel.setProblem(true); }

void DownloaderWindowController::refreshStartButton() {
  const auto canStart = [this] {
    if (!analyzedJob) return false;
    switch (static_cast<OutputMode>(form_.modePopup.selectedIndex().value_or(0))) {
      case OutputMode::video:
        return analyzedJob->formats && !analyzedJob->formats->empty();
      case OutputMode::audio:
        return true;
      case OutputMode::subtitle:
        return analyzedJob->subtitles && !analyzedJob->subtitles->empty();
    }
    return false;
  };
  form_.startButton.setEnabled(canStart());
}

void DownloaderWindowController::startCurrentTask(Task<void> body) {
  if (pollTask) pollTask->cancel();
  pollTask = capabilities_.executor.spawn(keepingAlive(shared_from_this(), std::move(body)));
}

void DownloaderWindowController::spawn(Task<void> body) {
  capabilities_.executor.spawn(keepingAlive(shared_from_this(), std::move(body)));
}

}  // namespace zunto
