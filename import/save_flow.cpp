// Saving: asks for a place, fetches the finished file into that folder, where it is not seen, and moves it to
// the place.
#include <utility>

#include "async/callback_await.h"
#include "import/downloader_window_controller.h"
#include "import/media_texts.h"
#include "protocol/helper_error.h"

namespace zunto {

Task<void> DownloaderWindowController::saveResult(MediaJob job) {
  if (!job.result || job.result->kind != "file") throw HelperError(HelperErrorCode::noDownloadableFile);
  const std::optional<std::filesystem::path> location = co_await askWhereToSave(*job.result);
  if (!location) {
    setBusy(false, "Download finished locally. Saving was cancelled.");
    co_return;
  }
  showStatus("Saving " + location->filename().string() + "…");
  // What bars the way there is better known before a gigabyte is fetched.
  capabilities_.fileSystem.requireSavable(*location);
  const Task<void> fetching = fetchTo(*location, job.jobId);
  co_await fetching;
  savedURL = location;
  form_.revealButton.setHidden(false);
  form_.progress.setValue(ProgressBar::maximum);
  setBusy(false, "Saved to " + location->string());
}

Task<std::optional<std::filesystem::path>> DownloaderWindowController::askWhereToSave(
    const JobResult& result) {
  using Choice = std::optional<std::filesystem::path>;
  const SavePanel panel{.title = "Save ZUNTO Download",
                        .suggestedName = suggestedFileName(result.filename),
                        .canCreateFolders = true};
  co_return co_await awaitCallbackUncancellable<Choice>([this, &panel](Completion<Choice> chosen) {
    capabilities_.savePanels.showSavePanel(panel, std::move(chosen));
  });
}

Task<void> DownloaderWindowController::fetchTo(std::filesystem::path location, std::string jobId) {
  const Task<std::unique_ptr<TemporaryFile>> fetch =
      client_.fetchResult(std::move(jobId), location.parent_path());
  const std::unique_ptr<TemporaryFile> fetched = co_await fetch;
  // The panel has asked about replacing; only now, with the whole file at hand, is the old one given up.
  if (capabilities_.fileSystem.exists(location)) capabilities_.fileSystem.removeFile(location);
  fetched->moveTo(location);
}

void DownloaderWindowController::revealSavedFile() {
  mainThread_.check("revealSavedFile");
  if (savedURL) capabilities_.workspace.reveal(*savedURL);
}

}  // namespace zunto
