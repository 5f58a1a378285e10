// The native "Media Import" window: the form, and the flows that analyse a link, run a download job and save
// its result.
//
// Owner: the application delegate, which makes exactly one and keeps it for the life of the program; a
// running task keeps it alive too. Thread: main thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "async/executor.h"
#include "async/main_thread.h"
#include "import/import_form.h"
#include "platform/application.h"
#include "platform/beeper.h"
#include "platform/dialogs.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/pasteboard.h"
#include "platform/window_system.h"
#include "platform/workspace.h"
#include "protocol/processor_client.h"
#include "protocol/readiness.h"
#include "protocol/records.h"
#include "protocol/url.h"

namespace zunto {

/// What the controller holds, gathered so that it can be looked at as a whole.
struct ImportFields {
  EnsureHelper ensureHelper;                 ///< given at creation
  std::string sessionToken{};                ///< empty until a readiness step obtains it; never cleared
  std::optional<MediaJob> analyzedJob{};     ///< the last successfully analysed job
  std::optional<std::string> activeJobId{};  ///< only while a download job is running
  std::optional<TaskHandle> pollTask{};      ///< the one current analysis or download task
  std::optional<std::filesystem::path> savedURL{};  ///< where the last result was saved
};

class DownloaderWindowController final : public std::enable_shared_from_this<DownloaderWindowController>,
                                         private ImportFields,
                                         private ReadinessForm {
 public:
  /// The capabilities that the window uses, all of which must outlive it.
  struct Capabilities {
    Executor& executor;
    HttpSession& httpSession;
    FileSystem& fileSystem;
    WindowSystem& windowSystem;
    Application& application;
    SavePanelPresenter& savePanels;
    Pasteboard& pasteboard;
    Beeper& beeper;
    Workspace& workspace;
  };

  /// Builds the form and its window, not yet shown.
  [[nodiscard]] static std::shared_ptr<DownloaderWindowController> create(EnsureHelper ensureHelper,
                                                                          const Url& helperBaseUrl,
                                                                          const Capabilities& capabilities);

  /// Puts `link` into the link field when there is one; shows, centres and activates the window; starts a
  /// readiness step. Never starts an analysis.
  void present(const std::optional<Url>& link);

  // What the buttons, the mode pop-up and the window's close box do.
  void analyze();
  void pasteLink();
  void modeChanged();
  void startDownload();
  void cancelJob();
  void revealSavedFile();
  void windowWillClose();

  /// The controls, for views and tests to drive by their `user...` functions and to read.
  [[nodiscard]] ImportForm& form() { return form_; }
  [[nodiscard]] Window& window() { return window_; }
  [[nodiscard]] const ImportFields& fields() const { return *this; }

 private:
  struct Creation {};

 public:
  /// For create() alone: only a shared object can be kept alive by its tasks.
  DownloaderWindowController(Creation, EnsureHelper ensureHelper, const Url& helperBaseUrl,
                             const Capabilities& capabilities);

 private:
  // The form.
  void bindActions();
  void setBusy(bool busy, const std::string& status) override;
  void showStatus(const std::string& status);
  void markProblem() override;
  void refreshStartButton();
  void startCurrentTask(Task<void> body);
  void spawn(Task<void> body);

  // Analysis.
  [[nodiscard]] Task<void> runAnalysis();
  [[nodiscard]] Task<void> probeLink(Url link);
  void refuse(const std::string& reason);
  void resetAnalysis();
  void showAnalysis(MediaJob analyzed);
  void fillQualities(const MediaJob& job);
  void fillSubtitles(const MediaJob& job);

  // Request bodies.
  [[nodiscard]] RequestBody requestBody(const std::string& sourceUrl, std::optional<OutputMode> mode) const;
  [[nodiscard]] RequestBody jobBody(OutputMode mode) const;
  void addSubtitleKeys(RequestBody& body) const;

  // Download and polling.
  [[nodiscard]] Task<void> runDownload();
  [[nodiscard]] Task<void> pollJob(std::string jobId, bool forAnalysis);
  [[nodiscard]] Task<void> finishJob(MediaJob job, bool forAnalysis);
  [[nodiscard]] Task<void> requestCancellation(std::string jobId);
  void showFailure(const Error& failure);

  // Saving.
  [[nodiscard]] Task<void> saveResult(MediaJob job);
  [[nodiscard]] Task<std::optional<std::filesystem::path>> askWhereToSave(const JobResult& result);
  [[nodiscard]] Task<void> fetchTo(std::filesystem::path location, std::string jobId);

  Capabilities capabilities_;
  MainThread mainThread_;
  ImportForm form_;
  Window window_;
  ProcessorClient client_;
  Readiness readiness_;
  std::unique_ptr<WindowView> view_;
};

}  // namespace zunto
