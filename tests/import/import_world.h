// The import window in a scripted world: the real controller, and everything around it a fake that the test
// reads and moves.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "async/executor.h"
#include "import/downloader_window_controller.h"
#include "tests/fakes/fake_application.h"
#include "tests/fakes/fake_beeper.h"
#include "tests/fakes/fake_ensure_helper.h"
#include "tests/fakes/fake_file_system.h"
#include "tests/fakes/fake_pasteboard.h"
#include "tests/fakes/fake_save_panels.h"
#include "tests/fakes/fake_window_system.h"
#include "tests/fakes/fake_workspace.h"
#include "tests/fakes/scripted_http_session.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto::testing {

inline constexpr std::chrono::milliseconds pollPause{700};

inline const std::string link = "https://example.org/watch?v=1";

/// Two qualities and three tracks, the third recommended.
inline const std::string richMedia =
    R"("title":"A film","duration":3725,"formats":[{"quality":"1080p"},{"quality":"720p"}],)"
    R"("subtitles":[{"id":"en-1","label":"English","original":true},{"id":"de-1","language":"de"},{"id":"ja-1"}],)"
    R"("recommendedSubtitleId":"ja-1")";

/// The processor answers the polls of `jobId` under another identifier, so that a mix-up of the two is seen.
[[nodiscard]] inline std::string ownIdentifier(const std::string& jobId) { return jobId + "-own"; }

inline const std::string fileResult = R"("result":{"kind":"file","filename":"film.mp4"})";

/// A job's answer: {"jobId":...,"status":...} with `members` (such as "\"progress\":5") behind.
[[nodiscard]] std::string jobJson(const std::string& jobId, const std::string& status,
                                  const std::string& members = {});

struct ImportWorld {
  ImportWorld();

  VirtualClock clock;
  ScriptedHttpSession http{clock};
  FakeFileSystem files;
  FakeWindowSystem windowSystem;
  FakeApplication application;
  FakeSavePanels panels{clock};
  FakePasteboard pasteboard;
  FakeBeeper beeper;
  FakeWorkspace workspace;
  FakeEnsureHelper helper{clock};
  std::optional<Executor> executor{clock};
  std::shared_ptr<DownloaderWindowController> controller;

  [[nodiscard]] ImportForm& form() const { return controller->form(); }
  [[nodiscard]] const ImportFields& fields() const { return controller->fields(); }
  [[nodiscard]] const std::string& status() const { return form().statusLabel.text(); }

  /// Whether Paste, Analyze, the link field and the browser pop-up are all enabled, or all disabled.
  [[nodiscard]] bool inputsAreEnabled() const;
  [[nodiscard]] bool inputsAreDisabled() const;

  /// Runs turns until none is left; no time passes.
  void settle() { clock.runTurns(); }
  /// Runs turns until `reached`; fails the test when none is left before.
  void runUntil(const std::function<bool()>& reached);

  // The processor.
  void offerToken(const std::string& token = "token-1");
  /// The next answer to POST /probe is a queued job "probe-1".
  void acceptProbe();
  /// The next answer to POST /jobs is a queued job `jobId`.
  void acceptJob(const std::string& jobId = "job-1");
  /// The next answer to GET /jobs/`jobId`: a job with its own identifier.
  void answerPoll(const std::string& jobId, const std::string& status, const std::string& members = {});
  /// The answer to every GET /jobs/`jobId` from now on for which none is queued.
  void keepAnsweringPoll(const std::string& jobId, const std::string& status,
                         const std::string& members = {});
  [[nodiscard]] std::size_t requestCount(const std::string& method, const std::string& path) const;

  // The user, step by step. Each leaves the world settled.
  /// Presents the window with a token on offer.
  void beReady();
  /// From ready to an applied analysis of `members`.
  void analyzed(const std::string& members = richMedia);
  /// From an applied analysis to a job "job-1" that keeps answering "downloading".
  void downloading();
  /// From an applied analysis to the open save panel of a completed job "job-1" with `members`.
  void atSavePanel(const std::string& members = fileResult);
  void clickAnalyze();
  void clickDownload();
  void clickCancel();
};

}  // namespace zunto::testing
