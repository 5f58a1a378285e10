// Everything around the program, in one object: the processor, the machine, the disk, the desktop and its
// user's dialogs. Nothing happens in it by itself. What the program asks for stays open until the schedule
// ends it, and everything that the program does to the world is noted in the order in which it is done.
//
// Its seams keep the words of their headers: callbacks come on turns of their own, nothing is called back
// after a handle is gone, a child's end is told once. Owner: the simulation. Thread: one.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/entry.h"
#include "tests/fakes/fake_host_environment.h"
#include "tests/fakes/fake_pasteboard.h"
#include "tests/fakes/fake_status_bar.h"
#include "tests/fakes/fake_temporary_file.h"
#include "tests/fakes/fake_window_system.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto::simulation {

using std::chrono::nanoseconds;

/// How one request ends. What each means is the model's to say; the world only knows its bytes.
enum class Answer : std::uint8_t {
  refusedConnection,
  timedOut,
  notHttp,
  envelope500,
  plain500,
  garbage200,
  empty204,
  token200,
  token503,
  tokenInLowerCase,
  tokenEmpty,
  tokenAbsent,
  queued,
  probing,
  downloading,
  processing,
  completedRich,    ///< two qualities, three tracks
  completedBare,    ///< no list at all
  completedEmpty,   ///< empty lists
  completedVideo,   ///< one quality, no tracks
  completedTracks,  ///< tracks, no quality
  completedFile,
  completedNamelessFile,
  completedOtherKind,
  failedWithReason,
  failedWithoutReason,
  completedInUpperCase,
  null200,
  file200,
  file206,
  file404,
  count
};

[[nodiscard]] std::string_view nameOf(Answer answer);

enum class RequestKind { health, probe, jobs, poll, cancel, result };

/// What the program did to the world.
enum class What : std::uint8_t {
  probed,
  sent,
  launched,
  interrupted,
  terminateAsked,
  logOpened,
  logClosed,
  alertShown,
  panelShown,
  beeped,
  activated,
  revealed,
  webOpened,
  removed,
  moved,
  terminated,
  listening,
  notListening
};

struct Did {
  What what{};
  std::int64_t number = 0;
  std::string text = {};
  bool operator==(const Did&) const = default;
};

[[nodiscard]] std::string inWords(const Did& did);

/// Who is told, just before, of everything that the world brings to the program.
class Witness {
 public:
  Witness() = default;
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;
  virtual ~Witness() = default;

  virtual void programTurn() = 0;                       ///< one that the program has posted
  virtual void timerElapsed(std::uint64_t number) = 0;  ///< of the program, counted from 0
  virtual void answered(std::uint64_t request, Answer answer) = 0;
  virtual void alertEnded(std::size_t button) = 0;
  virtual void panelEnded(std::optional<std::size_t> place) = 0;
  virtual void childEnded() = 0;
  virtual void linkCame(std::size_t link) = 0;
};

// The fixed things of this world.

struct LinkText {
  std::string_view text;
  std::string_view accepted;  ///< what an analysis asks for; empty where it is refused
};
/// What the link field may hold.
inline constexpr std::array linkTexts = {
    LinkText{"https://example.org/w?v=1", "https://example.org/w?v=1"},
    LinkText{"  https://example.org/b ", "https://example.org/b"},
    LinkText{"http://example.org/w", ""},
    LinkText{"", ""},
    LinkText{"no link at all", ""},
    LinkText{"HTTPS://example.org/c", ""},
    LinkText{"https://example.org/b", "https://example.org/b"},
};

struct HandedLink {
  std::optional<std::string_view> text;  ///< none: an event without a text
  bool isOurs;                           ///< whether the window is presented
  std::string_view media;                ///< what the link field shows then; empty: what it did
};
inline constexpr std::array handedLinks = {
    HandedLink{"zunto-helper:?url=https%3A%2F%2Fexample.org%2Fw%3Fv%3D1", true, "https://example.org/w?v=1"},
    HandedLink{"zunto-helper:", true, ""},
    HandedLink{"zunto-helper://open?x=1&url=https%3A%2F%2Fexample.org%2Fb&url=no", true,
               "https://example.org/b"},
    HandedLink{"ZUNTO-HELPER:?url=https%3A%2F%2Fexample.org%2Fb", false, ""},
    HandedLink{"https://example.org/?url=https%3A%2F%2Fexample.org%2Fb", false, ""},
    HandedLink{std::nullopt, false, ""},
    HandedLink{"zunto-helper:?url=%20bad%20", true, ""},
};

struct Place {
  const char* path;
  std::string_view name;
  bool isSavable;
};
inline constexpr std::array places = {Place{"/home/user/Videos/film.mp4", "film.mp4", true},
                                      Place{"/home/user/Videos/other.mp4", "other.mp4", true},
                                      Place{"/gone/film.mp4", "film.mp4", false}};

inline constexpr std::array<std::string_view, 5> components = {"node", "yt-dlp", "ffmpeg", "ffprobe",
                                                               "index.mjs"};
inline constexpr const char* logPath = "/home/user/Library/Logs/ZUNTO Helper/helper.log";
inline constexpr std::string_view webHost = "web.example";
inline constexpr std::string_view webPage = "https://web.example/tools/video-import/";
inline constexpr std::string_view refusedText = "Could not connect to the local processor.";
inline constexpr std::string_view timedOutText = "The request timed out.";
inline constexpr std::string_view envelopeText = "The site does not answer.";
inline constexpr std::string_view notSavableText = "No file could be made there.";
inline constexpr std::string_view notRemovableText = "The old file could not be removed.";
inline constexpr std::string_view notMovableText = "The file could not be moved.";
inline constexpr std::string_view logRefusal = "The log could not be opened.";
inline constexpr std::string_view launchRefusal = "\"node\" could not be started.";
/// The odd nanosecond tells what a late timer asks for from the pauses of the flows.
inline constexpr nanoseconds slowProbe = std::chrono::seconds(1) + nanoseconds(1);

class World final : public Application,
                    public ProcessSpawner,
                    public CommandRunner,
                    public FileSystem,
                    public OutputFileOpener,
                    public HttpSession,
                    public UrlEventSource,
                    public AlertPresenter,
                    public SavePanelPresenter,
                    public Beeper,
                    public Workspace {
 public:
  /// Who answers on the port, as a probe sees it.
  enum class Service { none, healthy, unwell, failing, slow };
  enum class LogFault { none, folder, file, seek, close };

  struct Child {
    bool isRunning = true;
    bool isTold = false;  ///< its end notice has been posted
    Service service = Service::none;
    bool ignoresInterrupt = false;
    bool ignoresTerminate = false;
    std::vector<nanoseconds> interrupts;
    std::vector<nanoseconds> terminateCalls;  ///< when each is to be sent
    std::vector<nanoseconds> terminates;      ///< those that reached it
    std::function<void()> ended = {};
  };
  struct Request {
    std::uint64_t number = 0;
    RequestKind kind{};
    std::string method;
    std::string path;
    bool hasToken = false;
    std::string token;
    bool hasContentType = false;
    std::filesystem::path folder;  ///< of a download
    bool isAnswered = false;       ///< its answer is on its way
    std::function<void(Outcome<HttpResponse>)> done = {};
    std::function<void(Outcome<HttpDownload>)> downloaded = {};
  };
  struct ProgramTimer {
    std::uint64_t number = 0;
    nanoseconds due{0};
    nanoseconds delay{0};  ///< as it was asked for
    bool isTick = false;   ///< the program's first, and each that the call of such a one has asked for first
  };

  explicit World(Witness& witness);
  World(const World&) = delete;
  World& operator=(const World&) = delete;
  ~World() override;

  /// The main loop as the program has it.
  [[nodiscard]] Clock& loop() { return loop_; }

  // What the program did since the last look.
  std::vector<Did> deeds;

  // What stands open.
  testing::VirtualClock clock;
  std::deque<Request> requests;
  std::vector<ProgramTimer> timers;
  std::size_t programTurns = 0;
  std::vector<std::shared_ptr<Child>> children;
  std::deque<std::function<void(std::size_t)>> alerts;
  std::deque<std::function<void(std::optional<std::filesystem::path>)>> panels;
  std::size_t openLogs = 0;
  UrlEventSource::Handler handler;
  std::vector<std::shared_ptr<testing::TemporaryFileRecord>> temporaryFiles;

  // How things are.
  Service foreign = Service::none;
  bool hasCurl = true;
  std::optional<std::size_t> missingComponent;
  LogFault logFault = LogFault::none;
  bool refusesLaunches = false;
  bool ignoresInterrupt = false;  ///< the next children
  std::array<bool, places.size()> isTaken{};
  bool refusesRemoval = false;
  bool refusesMoves = false;
  bool isEnding = false;  ///< the program was told to terminate

  // What has happened, for the invariants.
  std::vector<std::string> jobsRunning;  ///< download jobs that were accepted and not seen to end
  std::vector<Request> justSent;         ///< in this event, without their callbacks
  std::size_t saves = 0;
  std::optional<bool> lastProbe;  ///< of this event
  bool toldOfAnEnd = false;       ///< in this event
  bool placeChosen = false;       ///< in this event
  std::size_t alertsEnding = 0;   ///< their answers are on their way
  std::uint64_t requestsSoFar = 0;

  testing::FakeHostEnvironment host;
  testing::FakeStatusBar statusBar;
  testing::FakeWindowSystem windowSystem;
  testing::FakePasteboard pasteboard;
  std::function<void()> terminating;

  // What the schedule makes happen. Each answers whether there was anything to do it to.
  bool answer(std::size_t which, Answer how);
  bool endAlert(std::size_t button);
  bool endPanel(std::optional<std::size_t> place);
  bool handOver(std::size_t link);
  bool tellOfAnEnd(std::size_t which);

  /// What answers a probe now, and how long it takes.
  [[nodiscard]] Service service() const;
  [[nodiscard]] bool isHealthy() const { return hasCurl && service() == Service::healthy; }
  [[nodiscard]] nanoseconds probeTime() const {
    return hasCurl && service() == Service::slow ? slowProbe : nanoseconds::zero();
  }

  // Application
  void activateIgnoringOtherApps() override { note(What::activated); }
  void terminate() override;
  // ProcessSpawner
  [[nodiscard]] std::shared_ptr<ChildProcess> launch(const ChildSpec& spec,
                                                     std::function<void()> ended) override;
  // CommandRunner
  [[nodiscard]] CommandResult run(const std::filesystem::path& executable,
                                  const std::vector<std::string>& arguments) override;
  // FileSystem
  [[nodiscard]] bool exists(const std::filesystem::path& path) const override;
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& path) const override;
  void createFolder(const std::filesystem::path& path) override;
  bool createFile(const std::filesystem::path&) override { return true; }
  void removeFile(const std::filesystem::path& path) override;
  void requireSavable(const std::filesystem::path& path) override;
  // OutputFileOpener
  [[nodiscard]] std::unique_ptr<OutputFile> openForWriting(const std::filesystem::path& path) override;
  // HttpSession
  [[nodiscard]] std::unique_ptr<HttpTransfer> send(HttpRequest request,
                                                   std::function<void(Outcome<HttpResponse>)> done) override;
  [[nodiscard]] std::unique_ptr<HttpTransfer> download(
      HttpRequest request, std::filesystem::path folder,
      std::function<void(Outcome<HttpDownload>)> done) override;
  // UrlEventSource
  void setHandler(Handler handler) override;
  void removeHandler() override;
  // AlertPresenter
  void showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) override;
  // SavePanelPresenter
  void showSavePanel(const SavePanel& panel,
                     std::function<void(std::optional<std::filesystem::path>)> chosen) override;
  // Beeper
  void beep() override { note(What::beeped); }
  // Workspace
  void openWebAddress(const std::string& url) override { note(What::webOpened, 0, url); }
  void reveal(const std::filesystem::path& location) override { note(What::revealed, 0, location.string()); }

 private:
  class LoopTimer;
  class LogFile;
  class ChildHandle;
  class Transfer;

  class LoopClock final : public Clock {
   public:
    explicit LoopClock(World& world) : world_(world) {}
    [[nodiscard]] nanoseconds now() const override;
    [[nodiscard]] std::unique_ptr<Timer> callLater(nanoseconds delay, Turn turn) override;
    void post(Turn turn) override;

   private:
    World& world_;
  };

  void note(What what, std::int64_t number = 0, std::string text = {}) {
    deeds.push_back({what, number, std::move(text)});
  }
  Request& record(const HttpRequest& request);
  void deliver(std::uint64_t number, Answer how);
  void followJobs(const Request& request, Answer how);

  Witness& witness_;
  LoopClock loop_{*this};
  std::uint64_t timersSoFar_ = 0;
  bool isTicking_ = true;  ///< the next timer is the health timer's
  std::vector<std::unique_ptr<Timer>> terminateTimers_;
};

}  // namespace zunto::simulation
