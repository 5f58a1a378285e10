#include "model.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace zunto::simulation {

using namespace std::chrono_literals;

// The tables. Guards and effects are members of one struct, so that they stand close to the rows that use
// them; each says one thing.

struct Rules {
  using Lane = Model::Lane;
  using Guard = bool (*)(const Model&, const Lane&);
  using Effect = void (*)(Model&, Lane&);

  struct Row {
    State in;
    Cue cue;
    Guard guard;
    std::array<Effect, 5> effects;
    State next;
  };

  // How the form looks in each situation.
  enum class Inputs : std::uint8_t { same, on, off };
  enum class Start : std::uint8_t { same, off, ifAnalyzed };
  enum class Cancel : std::uint8_t { same, hidden, shown };
  struct Look {
    Inputs inputs;
    Start start;
    Cancel cancel;
  };
  static constexpr Look busy{Inputs::off, Start::off, Cancel::same};
  static constexpr Look busyDownload{Inputs::off, Start::off, Cancel::shown};
  static constexpr Look idle{Inputs::on, Start::ifAnalyzed, Cancel::same};
  static constexpr Look failed{Inputs::on, Start::ifAnalyzed, Cancel::hidden};
  static constexpr Look left{Inputs::same, Start::same, Cancel::hidden};
  static constexpr Look reset{Inputs::same, Start::off, Cancel::same};

  static void apply(Model& m, const Look& look) {
    if (look.inputs != Inputs::same) m.inputs_ = look.inputs == Inputs::on;
    if (look.start != Start::same) m.start_ = look.start == Start::ifAnalyzed && m.analyzed_.has_value();
    if (look.cancel != Cancel::same) m.cancel_ = look.cancel == Cancel::shown;
  }

  // How the status display looks.
  static constexpr std::string_view starting = "Starting ZUNTO Helper…";
  static constexpr std::string_view up = "ZUNTO Helper Ready · 127.0.0.1:43127";
  static constexpr Model::Display built{starting, "Stop Helper", true, "Z/UNTO"};
  static constexpr Model::Display ready{up, "Stop Helper", true, "Z/UNTO ●"};
  static constexpr Model::Display foreign{up, "Helper managed by another process", false, "Z/UNTO ●"};
  static constexpr Model::Display stopped{"ZUNTO Helper Stopped", "Start Helper", true, "Z/UNTO"};

  // What an answer means to a request that wants a job.
  enum class Meaning : std::uint8_t { fault, running, ended, completed };
  struct Job {
    Answer answer;
    Meaning meaning;
    double progress;
    std::string_view stage;   ///< what the status line shows
    std::string_view reason;  ///< why it ended
    bool isFile;
    std::string_view suggestion;  ///< of the save panel
    int media;                    ///< what an analysis shows
  };
  static constexpr std::string_view noReason = "The job did not complete.";
  static constexpr std::string_view nameless = "ZUNTO-download";
  static constexpr std::array jobs = {
      Job{Answer::queued, Meaning::running, 0, "Queued", "", false, "", 0},
      Job{Answer::probing, Meaning::running, 5, "Probing", "", false, "", 0},
      Job{Answer::downloading, Meaning::running, 42.5, "Fetching the video", "", false, "", 0},
      Job{Answer::processing, Meaning::running, 99, "Processing", "", false, "", 0},
      Job{Answer::completedRich, Meaning::completed, 0, "Completed", "", false, "", 1},
      Job{Answer::completedBare, Meaning::completed, 0, "Completed", "", false, "", 0},
      Job{Answer::completedEmpty, Meaning::completed, 0, "All done", "", false, "", 2},
      Job{Answer::completedVideo, Meaning::completed, 100, "Completed", "", false, "", 3},
      Job{Answer::completedTracks, Meaning::completed, 0, "Completed", "", false, "", 4},
      Job{Answer::completedFile, Meaning::completed, 100, "Completed", "", true, "film.mp4", 0},
      Job{Answer::completedNamelessFile, Meaning::completed, 0, "Completed", "", true, nameless, 0},
      Job{Answer::completedOtherKind, Meaning::completed, 0, "Completed", "", false, "", 0},
      Job{Answer::failedWithReason, Meaning::ended, 0, "Failed", "The video is private.", false, "", 0},
      Job{Answer::failedWithoutReason, Meaning::ended, 0, "Failed", noReason, false, "", 0},
      Job{Answer::completedInUpperCase, Meaning::ended, 0, "Completed", noReason, false, "", 0},
  };
  static const Job* jobOf(const Lane& lane) {
    if (!lane.answer) return nullptr;
    for (const Job& job : jobs) {
      if (job.answer == *lane.answer) return &job;
    }
    return nullptr;
  }

  static const Model::Media& mediaOf(const Job& job) {
    static const std::vector<std::string_view> labels = {"English — Original · Recommended",
                                                         "de — Auto-generated", "ja-1 — Manual"};
    static const std::vector<std::string_view> ids = {"en-1", "de-1", "ja-1"};
    static const std::array<Model::Media, 5> media = {
        Model::Media{"Untitled media", "Duration unavailable", {}, {}, {}, 0},
        Model::Media{"A film", "Duration: 62:05", {"1080p", "720p"}, labels, ids, 2},
        Model::Media{"Nothing", "Duration unavailable", {}, {}, {}, 0},
        Model::Media{"Untitled media", "Duration: 0:59", {"480p"}, {}, {}, 0},
        Model::Media{"A talk", "Duration unavailable", {}, labels, ids, 1},
    };
    return media.at(static_cast<std::size_t>(job.media));
  }

  /// Why a request of the generic kind failed; none where the words are open.
  static std::optional<std::string_view> reasonOf(const Lane& lane) {
    if (!lane.answer) return std::nullopt;  // cancelled
    switch (*lane.answer) {
      case Answer::refusedConnection:
        return refusedText;
      case Answer::timedOut:
        return timedOutText;
      case Answer::envelope500:
        return envelopeText;
      case Answer::notHttp:
      case Answer::plain500:
      case Answer::token503:
      case Answer::file404:
        return "The local processor returned an error.";
      default:
        return std::nullopt;  // an answer that does not decode
    }
  }

  // Guards.

  static bool always(const Model&, const Lane&) { return true; }
  template <Root root>
  static bool is(const Model&, const Lane& lane) {
    return lane.root == root;
  }
  static bool unpermitted(const Model& m, const Lane& lane) {
    return lane.root == Root::analysis && !m.isPermitted_;
  }
  static const LinkText& linkText(const Model& m) {
    for (const LinkText& link : linkTexts) {
      if (link.text == m.urlText_) return link;
    }
    return linkTexts[3];
  }
  static bool badLink(const Model& m, const Lane& lane) {
    return lane.root == Root::analysis && linkText(m).accepted.empty();
  }
  static bool analysisWithoutToken(const Model& m, const Lane& lane) {
    return lane.root == Root::analysis && m.token_.empty();
  }
  static bool nothingAnalyzed(const Model& m, const Lane& lane) {
    return lane.root == Root::download && !m.analyzed_;
  }
  static bool tickWhileStarting(const Model& m, const Lane& lane) {
    return lane.root == Root::tick && m.isStarting_;
  }
  static bool startUnderWay(const Model& m, const Lane&) { return m.isStarting_; }
  static bool healthy(const Model&, const Lane& lane) { return lane.isHealthy; }
  static bool childHeld(const Model& m, const Lane&) { return m.child_.has_value(); }
  static bool noResources(const Model& m, const Lane&) { return !m.world_->host.resources; }
  static bool componentMissing(const Model& m, const Lane&) { return m.world_->missingComponent.has_value(); }
  static bool logRefused(const Model& m, const Lane&) {
    return m.world_->logFault == World::LogFault::folder || m.world_->logFault == World::LogFault::file;
  }
  static bool launchRefused(const Model& m, const Lane&) {
    return m.world_->logFault == World::LogFault::seek || m.world_->refusesLaunches;
  }
  static bool givesUp(const Model& m, const Lane& lane) {
    return lane.probes == 60 || (m.child_ && !m.ownChildRuns());
  }
  static bool wantsLog(const Model&, const Lane& lane) { return lane.button == 1; }
  static bool tokenAnswered(const Model&, const Lane& lane) {
    return lane.answer == Answer::token200 || lane.answer == Answer::token503 ||
           lane.answer == Answer::tokenInLowerCase;
  }
  static bool endsPrepared(const Model& m, const Lane& lane) {
    return lane.root == Root::readiness || m.token_.empty();
  }
  static bool jobAnswered(const Model&, const Lane& lane) { return jobOf(lane) != nullptr; }
  static bool cancelledLane(const Model&, const Lane& lane) { return lane.isCancelled; }
  template <Meaning meaning>
  static bool means(const Model&, const Lane& lane) {
    const Job* job = jobOf(lane);
    return job != nullptr && job->meaning == meaning;
  }
  static bool analysisCompleted(const Model& m, const Lane& lane) {
    return lane.root == Root::analysis && means<Meaning::completed>(m, lane);
  }
  static bool completedWithFile(const Model& m, const Lane& lane) {
    return means<Meaning::completed>(m, lane) && jobOf(lane)->isFile;
  }
  static bool noPlace(const Model&, const Lane& lane) { return !lane.place; }
  static bool notSavable(const Model&, const Lane& lane) { return !places.at(*lane.place).isSavable; }
  static bool fileAnswered(const Model&, const Lane& lane) {
    // Of a result only the status counts.
    return lane.answer && *lane.answer != Answer::refusedConnection && *lane.answer != Answer::timedOut &&
           *lane.answer != Answer::notHttp && *lane.answer != Answer::envelope500 &&
           *lane.answer != Answer::plain500 && *lane.answer != Answer::empty204 &&
           *lane.answer != Answer::token503 && *lane.answer != Answer::file206 &&
           *lane.answer != Answer::file404;
  }
  static bool oldFileStays(const Model& m, const Lane& lane) {
    return fileAnswered(m, lane) && m.world_->isTaken.at(*lane.place) && m.world_->refusesRemoval;
  }
  static bool newFileStays(const Model& m, const Lane& lane) {
    return fileAnswered(m, lane) && m.world_->refusesMoves;
  }
  static bool ownChildRuns(const Model& m, const Lane&) { return m.ownChildRuns(); }
  static bool nothingActive(const Model& m, const Lane&) { return !m.activeJobId_; }
  static bool nothingSaved(const Model& m, const Lane&) { return !m.saved_; }
  static bool nothingCopied(const Model& m, const Lane&) { return !m.world_->pasteboard.text; }

  // Effects on the form.

  static void status(Model& m, std::optional<std::string_view> text) {
    m.status_ = text ? std::optional<std::string>(*text) : std::nullopt;
  }
  template <const Look& look>
  static void looks(Model& m, Lane&) {
    apply(m, look);
  }
  static void sayStartingProcessor(Model& m, Lane&) { status(m, "Starting the local processor…"); }
  static void sayCouldNotStart(Model& m, Lane&) {
    status(m, "ZUNTO Helper could not start. Use the menu bar log for details.");
  }
  static void sayReady(Model& m, Lane&) {
    status(m, "Ready. Processing and browser access stay on this Mac.");
  }
  static void sayNoToken(Model& m, Lane& lane) {
    if (!lane.answer || *lane.answer == Answer::refusedConnection || *lane.answer == Answer::timedOut) {
      status(m, reasonOf(lane));
    } else {
      status(m, "The local processor did not provide a session token.");
    }
  }
  static void sayUnpermitted(Model& m, Lane&) {
    status(m, "Confirm that you own this media or have permission to use it.");
  }
  static void sayBadLink(Model& m, Lane&) { status(m, "Enter a valid HTTPS YouTube or Bilibili link."); }
  static void sayAnalyzing(Model& m, Lane&) { status(m, "Analyzing available formats…"); }
  static void sayStartingDownload(Model& m, Lane&) { status(m, "Starting local download…"); }
  static void sayCancelled(Model& m, Lane&) { status(m, "Download cancelled."); }
  static void saySavingCancelled(Model& m, Lane&) {
    status(m, "Download finished locally. Saving was cancelled.");
  }
  static void saySaving(Model& m, Lane& lane) {
    status(m, "Saving " + std::string(places.at(*lane.place).name) + "…");
  }
  static void beep(Model& m, Lane&) { m.expect(What::beeped); }

  static void forgetTask(Model& m, Lane&) { m.task_.reset(); }
  static void forgetActive(Model& m, Lane&) { m.activeJobId_.reset(); }
  static void failWith(Model& m, Lane& lane) {
    m.task_.reset();
    m.activeJobId_.reset();
    apply(m, failed);
    status(m, lane.reason);
    m.expect(What::beeped);
  }
  static void becauseOfAnswer(Model&, Lane& lane) { lane.reason = reasonOf(lane); }
  static void becauseOfTransfer(Model&, Lane& lane) {
    lane.reason =
        !lane.answer || *lane.answer == Answer::refusedConnection || *lane.answer == Answer::timedOut
            ? reasonOf(lane)
            : "The local result could not be read.";
  }
  static void becauseItEnded(Model&, Lane& lane) { lane.reason = jobOf(lane)->reason; }
  static void becauseOfNoFile(Model&, Lane& lane) {
    lane.reason = "The completed job did not contain a downloadable file.";
  }
  static void becauseOfPlace(Model&, Lane& lane) { lane.reason = notSavableText; }
  static void becauseOfOldFile(Model&, Lane& lane) { lane.reason = notRemovableText; }
  static void becauseOfMove(Model&, Lane& lane) { lane.reason = notMovableText; }
  static void becauseCancelled(Model&, Lane& lane) { lane.reason.reset(); }

  static void takeLink(Model& m, Lane& lane) { lane.link = linkText(m).accepted; }
  static void takeToken(Model& m, Lane& lane) { m.token_ = "token-" + std::to_string(*lane.request); }
  static void takeJob(Model&, Lane& lane) { lane.jobId = "job-" + std::to_string(*lane.request); }
  static void takeActive(Model& m, Lane& lane) { m.activeJobId_ = lane.jobId; }
  static void takeOwnJob(Model&, Lane& lane) { lane.ownJobId = lane.jobId + "-own"; }
  static void clearAnalysis(Model& m, Lane&) {
    m.analyzed_.reset();
    m.saved_.reset();
    m.reveal_ = false;
    m.progress_ = 0;
  }
  static void showProgress(Model& m, Lane& lane) {
    m.progress_ = jobOf(lane)->progress;
    status(m, jobOf(lane)->stage);
  }
  static void showAnalysis(Model& m, Lane& lane) {
    const Model::Media& media = mediaOf(*jobOf(lane));
    m.analyzed_ = media;
    m.title_ = media.title;
    m.detail_ = media.detail;
    m.qualities_ = media.qualities;
    if (m.qualities_.empty()) m.qualities_ = {"No video quality available"};
    m.quality_ = 0;
    m.tracks_ = media.tracks;
    if (m.tracks_.empty()) m.tracks_ = {"No subtitle tracks"};
    m.track_ = media.recommended;
    m.progress_ = 100;
    apply(m, idle);
    status(m, "Analysis complete. Choose an output and save it to your Mac.");
    refreshStart(m, lane);
  }
  // By mode: what makes Download possible.
  static void refreshStart(Model& m, Lane&) {
    const std::array possible = {m.analyzed_ && !m.analyzed_->qualities.empty(), m.analyzed_.has_value(),
                                 m.analyzed_ && !m.analyzed_->tracks.empty()};
    m.start_ = possible.at(m.mode_);
  }
  static void showMode(Model& m, Lane&) {
    m.qualityShown_ = m.mode_ == 0;
    m.tracksShown_ = m.mode_ == 2;
  }
  static void saveFile(Model& m, Lane& lane) {
    removeOld(m, lane);
    m.expect(What::moved, 0, places.at(*lane.place).path);
    m.saved_ = *lane.place;
    m.reveal_ = true;
    m.progress_ = 100;
    apply(m, idle);
    status(m, "Saved to " + std::string(places.at(*lane.place).path));
    m.task_.reset();
  }
  static void removeOld(Model& m, Lane& lane) {
    if (m.world_->isTaken.at(*lane.place)) m.expect(What::removed, 0, places.at(*lane.place).path);
  }
  static void writeBody(Model& m, Lane& lane) {
    constexpr std::array<std::string_view, 3> modes = {"video", "audio", "subtitle"};
    lane.body = commonBody(m, m.urlText_) + R"(,"mode":")" + std::string(modes.at(m.mode_)) + '"';
    if (m.mode_ == 0) lane.body += R"(,"quality":")" + std::string(m.qualities_.at(m.quality_)) + '"';
    if (m.mode_ == 2 && m.track_ < m.analyzed_->trackIds.size()) {
      lane.body += R"(,"subtitleLanguage":")" + std::string(m.analyzed_->trackIds.at(m.track_)) +
                   R"(","subtitleFormat":")" + (m.format_ == 0 ? "vtt" : "srt") + '"';
    }
    lane.body += '}';
  }
  static std::string commonBody(const Model& m, std::string_view link) {
    constexpr std::array<std::string_view, 3> logins = {"", R"(,"browserLogin":"chrome")",
                                                        R"(,"browserLogin":"safari")"};
    return R"({"sourceUrl":")" + std::string(link) + R"(","permissionConfirmed":true)" +
           std::string(logins.at(m.browser_));
  }
  static void writeProbe(Model& m, Lane& lane) { lane.body = commonBody(m, lane.link) + '}'; }

  // Effects on the supervisor.

  static void probe(Model& m, Lane& lane) {
    m.expect(What::probed);
    lane.isHealthy = m.world_->isHealthy();
    m.busy_ += m.world_->probeTime();
  }
  static void countProbe(Model&, Lane& lane) { ++lane.probes; }
  static void report(Model& m, bool isHealthy, bool isOwned) {
    m.display_ = !isHealthy ? stopped : isOwned ? ready : foreign;
  }
  static void reportProbe(Model& m, Lane& lane) { report(m, lane.isHealthy, m.ownChildRuns()); }
  static void reportReady(Model& m, Lane&) { report(m, true, true); }
  static void reportStopped(Model& m, Lane&) { report(m, false, false); }
  static void setStarting(Model& m, Lane&) { m.isStarting_ = true; }
  static void clearStarting(Model& m, Lane&) { m.isStarting_ = false; }
  static void alertIncomplete(Model& m, Lane&) {
    alert(m, "ZUNTO Helper is incomplete|A required bundled component is missing: " +
                 std::string(components.at(*m.world_->missingComponent)) +
                 ". Download a fresh copy of the app.");
  }
  static void alertLog(Model& m, Lane&) {
    m.holdsLog_ = false;
    alert(m, "ZUNTO Helper could not start|" + std::string(logRefusal));
  }
  static void alertLaunch(Model& m, Lane&) {
    const bool isLog = m.world_->logFault == World::LogFault::seek;
    m.holdsLog_ = false;
    m.expect(What::logOpened);
    alert(m, "ZUNTO Helper could not start|" + std::string(isLog ? logRefusal : launchRefusal));
  }
  static void alertGaveUp(Model& m, Lane&) {
    alert(m,
          "ZUNTO Helper could not start|Port 43127 may already be in use, or a bundled component could not "
          "run. Open the local log for details.");
  }
  static void alert(Model& m, std::string text) {
    m.expect(What::activated);
    m.expect(What::alertShown, 2, std::move(text));
  }
  static void launch(Model& m, Lane& lane) {
    m.expect(What::logOpened);
    m.expect(What::launched, static_cast<std::int64_t>(m.launches_));
    m.child_ = m.launches_++;
    m.holdsLog_ = true;
    m.display_.statusLine = starting;
    lane.probes = 0;
  }
  static void stop(Model& m, Lane&) {
    if (!m.child_) return;
    if (m.ownChildRuns()) {
      m.expect(What::interrupted, static_cast<std::int64_t>(*m.child_));
      m.expect(What::terminateAsked, static_cast<std::int64_t>(*m.child_));
    }
    m.child_.reset();
    if (m.holdsLog_) m.expect(What::logClosed);
    m.holdsLog_ = false;
    report(m, false, false);
  }
  static void forgetChild(Model& m, Lane&) {
    m.child_.reset();
    m.holdsLog_ = false;
  }
  static void revealLog(Model& m, Lane&) {
    if (m.world_->logFault != World::LogFault::folder) m.expect(What::revealed, 0, logPath);
  }

  // Effects of the user's commands.

  static void buildMenu(Model& m, Lane&) { m.display_ = built; }
  static void listen(Model& m, Lane&) {
    m.isListening_ = true;
    m.expect(What::listening);
  }
  static void present(Model& m, Lane&) {
    m.isVisible_ = true;
    ++m.presentations_;
    m.expect(What::activated);
    m.spawn(Root::readiness);
  }
  static void startTicking(Model& m, Lane&) {
    m.launchedAt_ = m.now();
    m.healthTimer_ = m.startTimer(5s);
  }
  static void openWeb(Model& m, Lane&) { m.expect(What::webOpened, 0, std::string(webPage)); }
  static void spawnToggle(Model& m, Lane&) { m.spawn(Root::toggle); }
  static void askToTerminate(Model& m, Lane& lane) {
    m.expect(What::terminated);
    tearDown(m, lane);
  }
  static void tearDown(Model& m, Lane& lane) {
    std::erase_if(m.timers_, [&m](const auto& timer) { return timer.number == m.healthTimer_; });
    m.healthTimer_.reset();
    m.isListening_ = false;
    m.expect(What::notListening);
    stop(m, lane);
  }
  template <Root root>
  static void startTask(Model& m, Lane&) {
    if (m.task_) m.cancel(*m.task_);
    m.task_ = m.spawn(root).number;
  }
  static void cancelTask(Model& m, Lane&) {
    if (m.task_) m.cancel(*m.task_);
  }
  static void spawnCancellation(Model& m, Lane&) { m.spawn(Root::cancellation).jobId = *m.activeJobId_; }
  static void paste(Model& m, Lane&) {
    std::string_view text = *m.world_->pasteboard.text;
    text.remove_prefix(std::min(text.find_first_not_of(" \n"), text.size()));
    m.urlText_ = text.substr(0, text.find_last_not_of(" \n") + 1);
  }
  static void revealSaved(Model& m, Lane&) { m.expect(What::revealed, 0, places.at(*m.saved_).path); }

  // The rows of one state stand together, and the first that holds is taken.
  static constexpr std::array rows = {
      // The start sequence. For who finds one under way it is one probe.
      Row{State::startEnter, Cue::go, startUnderWay, {probe}, State::answerByProbe},
      Row{State::startEnter, Cue::go, always, {setStarting, probe}, State::firstProbe},
      Row{State::answerByProbe, Cue::go, healthy, {}, State::started},
      Row{State::answerByProbe, Cue::go, always, {}, State::notStarted},
      Row{State::firstProbe, Cue::go, healthy, {reportProbe, clearStarting}, State::started},
      Row{State::firstProbe, Cue::go, childHeld, {clearStarting}, State::notStarted},
      Row{State::firstProbe, Cue::go, noResources, {clearStarting}, State::notStarted},
      Row{State::firstProbe, Cue::go, componentMissing, {alertIncomplete}, State::alert},
      Row{State::firstProbe, Cue::go, logRefused, {alertLog}, State::alert},
      Row{State::firstProbe, Cue::go, launchRefused, {alertLaunch}, State::alert},
      Row{State::firstProbe, Cue::go, always, {launch}, State::sleeping},
      Row{State::sleeping, Cue::elapsed, always, {probe, countProbe}, State::waitProbe},
      Row{State::sleeping, Cue::woken, always, {probe, countProbe}, State::waitProbe},
      Row{State::waitProbe, Cue::go, healthy, {reportReady, clearStarting}, State::started},
      Row{State::waitProbe, Cue::go, givesUp, {stop, reportStopped, alertGaveUp}, State::alert},
      Row{State::waitProbe, Cue::go, always, {}, State::sleeping},
      Row{State::alert, Cue::answered, wantsLog, {revealLog, clearStarting}, State::notStarted},
      Row{State::alert, Cue::answered, always, {clearStarting}, State::notStarted},
      Row{State::started, Cue::go, is<Root::toggle>, {}, State::end},
      Row{State::started, Cue::go, always, {}, State::health},
      Row{State::notStarted, Cue::go, is<Root::toggle>, {}, State::end},
      Row{State::notStarted, Cue::go, always, {sayCouldNotStart, looks<idle>}, State::prepared},
      // The readiness step, alone or in an analysis.
      Row{State::health, Cue::answered, tokenAnswered, {takeToken, sayReady, looks<idle>}, State::prepared},
      Row{State::health, Cue::answered, always, {sayNoToken, looks<idle>}, State::prepared},
      Row{State::health, Cue::woken, always, {sayNoToken, looks<idle>}, State::prepared},
      Row{State::prepared, Cue::go, endsPrepared, {}, State::end},
      Row{State::prepared, Cue::go, always, {}, State::analyze},
      // How each kind of lane begins.
      Row{State::begin, Cue::go, is<Root::readiness>, {sayStartingProcessor, looks<busy>}, State::startEnter},
      Row{State::begin, Cue::go, is<Root::toggle>, {}, State::startEnter},
      Row{State::begin, Cue::go, unpermitted, {sayUnpermitted, beep}, State::end},
      Row{State::begin, Cue::go, badLink, {sayBadLink, beep}, State::end},
      Row{State::begin,
          Cue::go,
          analysisWithoutToken,
          {takeLink, sayStartingProcessor, looks<busy>},
          State::startEnter},
      Row{State::begin, Cue::go, is<Root::analysis>, {takeLink}, State::analyze},
      Row{State::begin, Cue::go, nothingAnalyzed, {}, State::end},
      Row{State::begin,
          Cue::go,
          is<Root::download>,
          {writeBody, sayStartingDownload, looks<busyDownload>},
          State::jobRequest},
      Row{State::begin, Cue::go, is<Root::cancellation>, {}, State::cancelRequest},
      Row{State::begin, Cue::go, tickWhileStarting, {}, State::end},
      Row{State::begin, Cue::go, is<Root::tick>, {probe, reportProbe}, State::end},
      Row{State::begin, Cue::go, is<Root::notice>, {forgetChild, reportStopped}, State::end},
      // Analysis.
      Row{State::analyze,
          Cue::go,
          always,
          {clearAnalysis, looks<reset>, looks<busy>, sayAnalyzing, writeProbe},
          State::probeRequest},
      Row{State::probeRequest, Cue::answered, jobAnswered, {takeJob}, State::pollTop},
      Row{State::probeRequest, Cue::answered, always, {becauseOfAnswer, failWith}, State::end},
      Row{State::probeRequest, Cue::woken, always, {becauseCancelled, failWith}, State::end},
      // Download.
      Row{State::jobRequest, Cue::answered, jobAnswered, {takeJob, takeActive}, State::pollTop},
      Row{State::jobRequest, Cue::answered, always, {becauseOfAnswer, failWith}, State::end},
      Row{State::jobRequest, Cue::woken, always, {becauseCancelled, failWith}, State::end},
      // Polling, of both.
      Row{State::pollTop, Cue::go, cancelledLane, {forgetTask}, State::end},
      Row{State::pollTop, Cue::go, always, {}, State::poll},
      Row{State::poll, Cue::answered, means<Meaning::running>, {showProgress}, State::pause},
      Row{State::poll,
          Cue::answered,
          means<Meaning::ended>,
          {showProgress, becauseItEnded, failWith},
          State::end},
      Row{State::poll,
          Cue::answered,
          analysisCompleted,
          {showProgress, forgetActive, looks<left>, showAnalysis, forgetTask},
          State::end},
      Row{State::poll,
          Cue::answered,
          completedWithFile,
          {showProgress, forgetActive, looks<left>, takeOwnJob},
          State::savePlace},
      Row{State::poll,
          Cue::answered,
          means<Meaning::completed>,
          {showProgress, becauseOfNoFile, failWith},
          State::end},
      Row{State::poll, Cue::answered, always, {becauseOfAnswer, failWith}, State::end},
      Row{State::poll, Cue::woken, always, {becauseCancelled, failWith}, State::end},
      Row{State::pause, Cue::elapsed, always, {}, State::pollTop},
      Row{State::pause, Cue::woken, always, {becauseCancelled, failWith}, State::end},
      // Saving.
      Row{State::savePlace, Cue::go, always, {}, State::panel},
      Row{State::panel, Cue::answered, noPlace, {saySavingCancelled, looks<idle>, forgetTask}, State::end},
      Row{State::panel, Cue::answered, notSavable, {saySaving, becauseOfPlace, failWith}, State::end},
      Row{State::panel, Cue::answered, always, {saySaving}, State::fetch},
      Row{State::fetch, Cue::answered, oldFileStays, {becauseOfOldFile, failWith}, State::end},
      Row{State::fetch, Cue::answered, newFileStays, {removeOld, becauseOfMove, failWith}, State::end},
      Row{State::fetch, Cue::answered, fileAnswered, {saveFile}, State::end},
      Row{State::fetch, Cue::answered, always, {becauseOfTransfer, failWith}, State::end},
      Row{State::fetch, Cue::woken, always, {becauseCancelled, failWith}, State::end},
      // Cancelling.
      Row{State::cancelRequest,
          Cue::answered,
          always,
          {forgetActive, sayCancelled, looks<idle>, looks<left>},
          State::end},
      // Commands.
      Row{State::launching, Cue::go, always, {buildMenu, listen, present, startTicking}, State::end},
      Row{State::openVideoImport, Cue::go, always, {openWeb}, State::end},
      Row{State::openDownloader, Cue::go, always, {}, State::present},
      Row{State::present, Cue::go, always, {present}, State::end},
      Row{State::toggleHelper, Cue::go, ownChildRuns, {stop}, State::end},
      Row{State::toggleHelper, Cue::go, always, {spawnToggle}, State::end},
      Row{State::showLog, Cue::go, always, {revealLog}, State::end},
      Row{State::quit, Cue::go, always, {stop, askToTerminate}, State::end},
      Row{State::terminate, Cue::go, always, {tearDown}, State::end},
      Row{State::clickAnalyze, Cue::go, always, {startTask<Root::analysis>}, State::end},
      Row{State::clickPaste, Cue::go, nothingCopied, {}, State::end},
      Row{State::clickPaste, Cue::go, always, {paste}, State::end},
      Row{State::clickDownload, Cue::go, always, {startTask<Root::download>}, State::end},
      Row{State::clickCancel, Cue::go, nothingActive, {}, State::end},
      Row{State::clickCancel, Cue::go, always, {cancelTask, spawnCancellation}, State::end},
      Row{State::clickReveal, Cue::go, nothingSaved, {}, State::end},
      Row{State::clickReveal, Cue::go, always, {revealSaved}, State::end},
      Row{State::modeChanged, Cue::go, always, {showMode, refreshStart}, State::end},
      Row{State::windowClosed, Cue::go, always, {cancelTask}, State::end},
  };

  /// Where the rows of each state begin.
  static std::size_t firstRowOf(State state) {
    static const auto firsts = [] {
      std::array<std::size_t, static_cast<std::size_t>(State::count)> first{};
      first.fill(rows.size());
      for (std::size_t i = rows.size(); i-- > 0;) first.at(static_cast<std::size_t>(rows.at(i).in)) = i;
      return first;
    }();
    return firsts.at(static_cast<std::size_t>(state));
  }

  // What a lane does when it comes to wait, and whether a cancellation ends the wait.
  struct Wait {
    State state;
    bool isCancellable;
    void (*begin)(Model&, Lane&);
  };
  static void sleepShort(Model& m, Lane& lane) { lane.timer = m.startTimer(150ms); }
  static void sleepLong(Model& m, Lane& lane) { lane.timer = m.startTimer(700ms); }
  static void waitForUser(Model&, Lane&) {}
  static void showPanel(Model& m, Lane& lane) {
    m.panels_.push_back(lane.number);
    m.expect(What::panelShown, 0, "Save ZUNTO Download|" + std::string(jobOf(lane)->suggestion));
  }
  static std::string bearer(const Model& m) { return " Bearer " + m.token_ + " "; }
  static void getHealth(Model& m, Lane& lane) { lane.request = m.sendRequest("GET /health"); }
  static void postProbe(Model& m, Lane& lane) {
    lane.request = m.sendRequest("POST /probe" + bearer(m) + lane.body);
  }
  static void postJob(Model& m, Lane& lane) {
    lane.request = m.sendRequest("POST /jobs" + bearer(m) + lane.body);
  }
  static void getJob(Model& m, Lane& lane) { lane.request = m.sendRequest("GET /jobs/" + lane.jobId); }
  static void getResult(Model& m, Lane& lane) {
    lane.request = m.sendRequest("GET /jobs/" + lane.ownJobId + "/result");
  }
  static void postCancel(Model& m, Lane& lane) {
    lane.request = m.sendRequest("POST /jobs/" + lane.jobId + "/cancel" + bearer(m) + "{}");
  }
  static constexpr std::array waits = {
      Wait{State::sleeping, true, sleepShort}, Wait{State::alert, false, waitForUser},
      Wait{State::health, true, getHealth},    Wait{State::probeRequest, true, postProbe},
      Wait{State::jobRequest, true, postJob},  Wait{State::poll, true, getJob},
      Wait{State::pause, true, sleepLong},     Wait{State::panel, false, showPanel},
      Wait{State::fetch, true, getResult},     Wait{State::cancelRequest, true, postCancel},
  };
  static const Wait* waitOf(State state) {
    for (const Wait& wait : waits) {
      if (wait.state == state) return &wait;
    }
    return nullptr;
  }
};

// The engine.

bool Model::ownChildRuns() const { return child_ && world_->children.at(*child_)->isRunning; }

Model::Lane& Model::spawn(Root root) {
  Lane& lane = lanes_.emplace_back();
  lane.number = lanesSoFar_++;
  lane.root = root;
  turns_.push_back({false, lane.number, 0});
  return lane;
}

Model::Lane* Model::find(std::uint64_t number) {
  for (Lane& lane : lanes_) {
    if (lane.number == number) return &lane;
  }
  return nullptr;
}

void Model::cancel(std::uint64_t number) {
  Lane* lane = find(number);
  if (lane == nullptr || lane->isCancelled) return;
  lane->isCancelled = true;
  const Rules::Wait* wait = Rules::waitOf(lane->state);
  if (wait != nullptr && wait->isCancellable) turns_.push_back({true, number, lane->wait});
}

std::uint64_t Model::startTimer(nanoseconds delay) {
  timers_.push_back({timersSoFar_, now() + delay});
  return timersSoFar_++;
}

std::uint64_t Model::sendRequest(std::string text) {
  expect(What::sent, 0, std::move(text));
  return requestsSoFar_++;
}

void Model::suspend(Lane& lane) {
  const Rules::Wait& wait = *Rules::waitOf(lane.state);
  ++lane.wait;
  if (wait.isCancellable && lane.isCancelled) {
    turns_.push_back({true, lane.number, lane.wait});
  } else {
    wait.begin(*this, lane);
  }
}

void Model::advance(Lane& lane, Cue cue) {
  if (lane.timer) {
    std::erase_if(timers_, [&lane](const PendingTimer& timer) { return timer.number == lane.timer; });
    lane.timer.reset();
  }
  for (;;) {
    const Rules::Row* taken = nullptr;
    for (std::size_t i = Rules::firstRowOf(lane.state);
         i < Rules::rows.size() && Rules::rows.at(i).in == lane.state; ++i) {
      const Rules::Row& row = Rules::rows.at(i);
      if (row.cue != cue || !row.guard(*this, lane)) continue;
      taken = &row;
      break;
    }
    if (taken == nullptr) return fail("no row of the table takes what has come");
    for (const Rules::Effect effect : taken->effects) {
      if (effect != nullptr) effect(*this, lane);
    }
    lane.state = taken->next;
    cue = Cue::go;
    if (lane.state == State::end) break;
    if (Rules::waitOf(lane.state) != nullptr) {
      lane.request.reset();
      suspend(lane);
      return;
    }
  }
  if (lane.root != Root::command) {
    std::erase_if(lanes_, [number = lane.number](const Lane& other) { return other.number == number; });
  }
}

void Model::command(State state) {
  busy_ = nanoseconds::zero();
  Lane user;
  user.root = Root::command;
  user.state = state;
  advance(user, Cue::go);
}

void Model::presentWith(std::string_view link) {
  if (!link.empty()) urlText_ = link;
  command(State::present);
}

void Model::edited(std::string_view text) { urlText_ = text; }
void Model::permissionToggled() { isPermitted_ = !isPermitted_; }
void Model::browserSelected(std::size_t index) { browser_ = index; }
void Model::qualitySelected(std::size_t index) { quality_ = index; }
void Model::trackSelected(std::size_t index) { track_ = index; }
void Model::formatSelected(std::size_t index) { format_ = index; }
void Model::modeSelected(std::size_t index) {
  mode_ = index;
  command(State::modeChanged);
}

void Model::programTurn() {
  busy_ = nanoseconds::zero();
  if (turns_.empty()) return fail("the program has posted a turn that nothing calls for");
  const Turn turn = turns_.front();
  turns_.pop_front();
  Lane* lane = find(turn.lane);
  if (lane == nullptr) return;
  if (!turn.isWake) {
    lane->state = State::begin;
    advance(*lane, Cue::go);
  } else if (turn.wait == lane->wait) {
    lane->answer.reset();
    advance(*lane, Cue::woken);
  }
}

void Model::timerElapsed(std::uint64_t number) {
  busy_ = nanoseconds::zero();
  if (number == healthTimer_) {
    std::erase_if(timers_, [number](const PendingTimer& timer) { return timer.number == number; });
    const auto periods = (now() - launchedAt_) / 5s + 1;
    healthTimer_ = startTimer(launchedAt_ + periods * 5s - now());
    spawn(Root::tick);
    return;
  }
  for (Lane& lane : lanes_) {
    if (lane.timer == number) return advance(lane, Cue::elapsed);
  }
  fail("a timer runs that nothing calls for");
}

void Model::answered(std::uint64_t request, Answer answer) {
  busy_ = nanoseconds::zero();
  for (Lane& lane : lanes_) {
    if (lane.request != request) continue;
    lane.answer = answer;
    return advance(lane, Cue::answered);
  }
  fail("a request is under way that nothing calls for");
}

void Model::alertEnded(std::size_t button) {
  busy_ = nanoseconds::zero();
  for (Lane& lane : lanes_) {
    if (lane.state != State::alert) continue;
    lane.button = button;
    return advance(lane, Cue::answered);
  }
  fail("an alert stands that nothing calls for");
}

void Model::panelEnded(std::optional<std::size_t> place) {
  busy_ = nanoseconds::zero();
  Lane* lane = panels_.empty() ? nullptr : find(panels_.front());
  if (lane == nullptr) return fail("a save panel stands that nothing calls for");
  panels_.pop_front();
  lane->place = place;
  advance(*lane, Cue::answered);
}

void Model::childEnded() { spawn(Root::notice); }

void Model::linkCame(std::size_t link) {
  if (!isListening_ || !handedLinks.at(link).isOurs) return;
  presentWith(handedLinks.at(link).media);
}

// Comparing.

namespace {

template <class T>
std::string show(const T& value) {
  std::ostringstream text;
  text << value;
  return '"' + text.str() + '"';
}
std::string show(bool value) { return value ? "yes" : "no"; }

class Comparison {
 public:
  template <class A, class B>
  void same(std::string_view what, const A& program, const B& model) {
    if (difference_ || program == model) return;
    difference_ = std::string(what) + ": the program has " + show(program) + ", the model " + show(model);
  }
  void deeds(const std::vector<Did>& program, const std::vector<Did>& model) {
    if (difference_ || program == model) return;
    std::string text = "the program did:";
    for (const Did& did : program) text += "\n      " + inWords(did);
    text += "\n    and the model expects:";
    for (const Did& did : model) text += "\n      " + inWords(did);
    difference_ = text;
  }
  void add(std::string text) {
    if (!difference_) difference_ = std::move(text);
  }
  [[nodiscard]] std::optional<std::string>& difference() { return difference_; }

 private:
  std::optional<std::string> difference_;
};

}  // namespace

std::optional<std::string> Model::disagreement(const HelperDelegate& delegate) {
  Comparison compare;
  compare.deeds(world_->deeds, expected_);
  world_->deeds.clear();
  expected_.clear();
  if (fault_) compare.add(*fault_);

  const SupervisorFields& own = delegate.fields();
  compare.same("the processor is held", own.processor != nullptr, child_.has_value());
  compare.same("the log is held", own.logHandle != nullptr, holdsLog_);
  compare.same("log files that are open", world_->openLogs, static_cast<std::size_t>(holdsLog_ ? 1 : 0));
  compare.same("isStarting", own.isStarting, isStarting_);
  compare.same("listening for links", world_->handler != nullptr, isListening_);
  if (own.statusMenuItem) {
    compare.same("the status line", own.statusMenuItem->title(), display_.statusLine);
    compare.same("the toggle's title", own.toggleMenuItem->title(), display_.toggleTitle);
    compare.same("the toggle is enabled", own.toggleMenuItem->isEnabled(), display_.toggleEnabled);
    compare.same("the bar's title", own.statusItem->buttonTitle(), display_.barTitle);
  }

  compare.same("turns that the program has posted", world_->programTurns, turns_.size());
  compare.same("timers", world_->timers.size(), timers_.size());
  for (const PendingTimer& timer : timers_) {
    const bool stands = std::any_of(
        world_->timers.begin(), world_->timers.end(),
        [&timer](const auto& other) { return other.number == timer.number && other.due == timer.due; });
    if (!stands) compare.add("no timer is due when the model expects one");
  }
  std::size_t requests = 0;
  for (const Lane& lane : lanes_) requests += lane.request ? 1 : 0;
  compare.same("requests under way", world_->requests.size(), requests);

  if (own.downloaderWindow) {
    DownloaderWindowController& window = *own.downloaderWindow;
    const ImportFields& fields = window.fields();
    const ImportForm& form = window.form();
    compare.same("sessionToken", fields.sessionToken, token_);
    compare.same("analyzedJob is held", fields.analyzedJob.has_value(), analyzed_.has_value());
    compare.same("activeJobId", fields.activeJobId.value_or("none"), activeJobId_.value_or("none"));
    compare.same("pollTask is held", fields.pollTask.has_value(), task_.has_value());
    compare.same("savedURL", fields.savedURL ? fields.savedURL->native() : "none",
                 saved_ ? places.at(*saved_).path : "none");
    compare.same("the link", form.urlField.text(), urlText_);
    compare.same("the permission", form.permissionCheck.isOn(), isPermitted_);
    compare.same("the access", form.browserPopup.selectedIndex().value_or(99), browser_);
    compare.same("the mode", form.modePopup.selectedIndex().value_or(99), mode_);
    compare.same("the quality", form.qualityPopup.selectedIndex().value_or(99), quality_);
    compare.same("the track", form.subtitlePopup.selectedIndex().value_or(99), track_);
    compare.same("the format", form.subtitleFormatPopup.selectedIndex().value_or(99), format_);
    const auto sameTitles = [&compare](std::string_view what, const PopUpButton& popup,
                                       const std::vector<std::string_view>& titles) {
      const bool same =
          std::equal(popup.titles().begin(), popup.titles().end(), titles.begin(), titles.end());
      compare.same(what, same, true);
    };
    sameTitles("the list of qualities is the model's", form.qualityPopup, qualities_);
    sameTitles("the list of tracks is the model's", form.subtitlePopup, tracks_);
    compare.same("the title", form.titleLabel.text(), title_);
    compare.same("the detail", form.detailLabel.text(), detail_);
    compare.same("the progress", form.progress.value(), progress_);
    if (!status_) status_ = form.statusLabel.text();
    compare.same("the window's status line", form.statusLabel.text(), *status_);
    compare.same("the link field is enabled", form.urlField.isEnabled(), inputs_);
    compare.same("Paste is enabled", form.pasteButton.isEnabled(), inputs_);
    compare.same("Analyze is enabled", form.analyzeButton.isEnabled(), inputs_);
    compare.same("the access is enabled", form.browserPopup.isEnabled(), inputs_);
    compare.same("Download is enabled", form.startButton.isEnabled(), start_);
    compare.same("Cancel is shown", !form.cancelButton.isHidden(), cancel_);
    compare.same("Show Downloaded File is shown", !form.revealButton.isHidden(), reveal_);
    compare.same("the quality is shown", !form.qualityPopup.isHidden(), qualityShown_);
    compare.same("the track is shown", !form.subtitlePopup.isHidden(), tracksShown_);
    compare.same("the format is shown", !form.subtitleFormatPopup.isHidden(), tracksShown_);
    compare.same("times shown", window.window().showRequests(), presentations_);
    compare.same("times centred", window.window().centerRequests(), presentations_);
  }
  return std::move(compare.difference());
}

}  // namespace zunto::simulation
