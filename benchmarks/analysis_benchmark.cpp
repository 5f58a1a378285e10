// analysis_benchmark COUNT: the main thread's own time, in milliseconds, from the answer with COUNT qualities
// and COUNT subtitle tracks to the form that has painted them, less the same for an answer with one of each.
// The form is the real one behind Qt with accessibility on; the processor is scripted.
#include <time.h>

#include <QAccessible>
#include <QApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "import/downloader_window_controller.h"
#include "platform/qt/qt_application.h"
#include "platform/qt/qt_clock.h"
#include "platform/qt/qt_status_menu.h"
#include "platform/qt/qt_window_system.h"
#include "tests/fakes/fake_application.h"
#include "tests/fakes/fake_beeper.h"
#include "tests/fakes/fake_ensure_helper.h"
#include "tests/fakes/fake_file_system.h"
#include "tests/fakes/fake_pasteboard.h"
#include "tests/fakes/fake_save_panels.h"
#include "tests/fakes/fake_workspace.h"
#include "tests/fakes/scripted_http_session.h"

namespace {

using namespace zunto;
using namespace zunto::testing;

constexpr int rounds = 7;

std::string analysisOf(int count) {
  std::string formats;
  std::string tracks;
  for (int i = 0; i < count; ++i) {
    const std::string number = std::to_string(i);
    const char* comma = i == 0 ? "" : ",";
    formats.append(comma).append(R"({"quality":")").append(number).append(R"(p"})");
    tracks.append(comma).append(R"({"id":"track-)").append(number);
    tracks.append(R"(","label":"Language )").append(number).append(R"("})");
  }
  return R"({"jobId":"1","status":"completed","title":"A film","duration":3725,"formats":[)" + formats +
         R"(],"subtitles":[)" + tracks + "]}";
}

double threadMilliseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// The import window as the program has it, with a script in the processor's place.
class Subject {
 public:
  Subject() {
    http_.answerAlways("GET", "/health",
                       {.headers = {{"X-ZUNTO-Session-Token", "token"}}, .body = R"({"status":"ok"})"});
    http_.answerAlways("POST", "/probe", {.status = 202, .body = R"({"jobId":"1","status":"queued"})"});
    controller_->form().urlField.userEdited("https://example.org/watch?v=1");
    controller_->present(std::nullopt);
    runUntil([this] { return !controller_->fields().sessionToken.empty(); });
  }

  /// What one analysis takes the main thread, up to its last paint.
  double analyze(const std::string& answer) {
    http_.answerAlways("GET", "/jobs/1", {.body = answer});
    const double start = threadMilliseconds();
    controller_->form().analyzeButton.userClicked();
    runUntil([this] { return controller_->fields().analyzedJob && !controller_->fields().pollTask; });
    QCoreApplication::processEvents(QEventLoop::AllEvents);
    QCoreApplication::sendPostedEvents();
    return threadMilliseconds() - start;
  }

 private:
  static void runUntil(const std::function<bool()>& reached) {
    const QDeadlineTimer deadline(60'000);
    while (!reached()) {
      if (deadline.hasExpired()) std::exit(2);
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
    }
  }

  QtClock clock_;
  ScriptedHttpSession http_{clock_};
  FakeFileSystem files_;
  QtStatusMenu statusMenu_;
  QtWindowSystem windows_{statusMenu_};
  FakeApplication application_;
  FakeSavePanels panels_{clock_};
  FakePasteboard pasteboard_;
  FakeBeeper beeper_;
  FakeWorkspace workspace_;
  FakeEnsureHelper helper_{clock_};
  Executor executor_{clock_};
  std::shared_ptr<DownloaderWindowController> controller_ = DownloaderWindowController::create(
      helper_.function(), Url::parse("http://127.0.0.1:43127").value(),
      {executor_, http_, files_, windows_, application_, panels_, pasteboard_, beeper_, workspace_});
};

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::atoi(argv[1]) : 5000;
  QtApplication application(argc, argv);
  QAccessible::setActive(true);
  Subject subject;
  const std::string small = analysisOf(1);
  const std::string large = analysisOf(count);
  subject.analyze(small);
  std::vector<double> differences;
  for (int round = 0; round < rounds; ++round) {
    const double floor = subject.analyze(small);
    differences.push_back(subject.analyze(large) - floor);
  }
  std::printf("%.3f\n", median(differences));
  return 0;
}
