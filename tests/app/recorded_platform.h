// The fakes with a journal in front of them, for tests of the order in which the supervisor does things
// across several capabilities.
//
// Owner: the test's world. Thread: main thread only.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "async/clock.h"
#include "platform/application.h"
#include "platform/dialogs.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/status_bar.h"
#include "platform/url_events.h"
#include "platform/window_system.h"
#include "platform/workspace.h"

namespace zunto::testing {

using Journal = std::vector<std::string>;

inline std::string inMilliseconds(std::chrono::nanoseconds duration) {
  return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count()) + " ms";
}

class RecordedClock final : public Clock {
 public:
  RecordedClock(Clock& clock, Journal& journal) : clock_(clock), journal_(journal) {}

  /// Called after every timer's call, before the turns that it posted.
  std::function<void()> afterTimer;

  [[nodiscard]] std::chrono::nanoseconds now() const override { return clock_.now(); }
  void post(Turn turn) override { clock_.post(std::move(turn)); }
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) override {
    journal_.push_back("start timer " + inMilliseconds(delay));
    return std::make_unique<RecordedTimer>(journal_, "end timer " + inMilliseconds(delay),
                                           clock_.callLater(delay, [this, turn = std::move(turn)] {
                                             turn();
                                             if (afterTimer) afterTimer();
                                           }));
  }

 private:
  class RecordedTimer final : public Timer {
   public:
    RecordedTimer(Journal& journal, std::string entry, std::unique_ptr<Timer> timer)
        : journal_(journal), entry_(std::move(entry)), timer_(std::move(timer)) {}
    RecordedTimer(const RecordedTimer&) = delete;
    RecordedTimer& operator=(const RecordedTimer&) = delete;
    ~RecordedTimer() override { journal_.push_back(entry_); }

   private:
    Journal& journal_;
    std::string entry_;
    std::unique_ptr<Timer> timer_;
  };

  Clock& clock_;
  Journal& journal_;
};

class RecordedFiles final : public FileSystem, public OutputFileOpener {
 public:
  RecordedFiles(FileSystem& files, OutputFileOpener& opener, Journal& journal)
      : files_(files), opener_(opener), journal_(journal) {}

  [[nodiscard]] bool exists(const std::filesystem::path& path) const override {
    journal_.push_back("exists " + path.filename().string());
    return files_.exists(path);
  }
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& path) const override {
    journal_.push_back("is executable " + path.filename().string());
    return files_.isExecutableFile(path);
  }
  void createFolder(const std::filesystem::path& path) override {
    journal_.push_back("create folder " + path.filename().string());
    files_.createFolder(path);
  }
  bool createFile(const std::filesystem::path& path) override {
    journal_.push_back("create file " + path.filename().string());
    return files_.createFile(path);
  }
  void removeFile(const std::filesystem::path& path) override { files_.removeFile(path); }
  void requireSavable(const std::filesystem::path& path) override { files_.requireSavable(path); }
  [[nodiscard]] std::unique_ptr<OutputFile> openForWriting(const std::filesystem::path& path) override {
    journal_.push_back("open " + path.filename().string());
    return opener_.openForWriting(path);
  }

 private:
  FileSystem& files_;
  OutputFileOpener& opener_;
  Journal& journal_;
};

class RecordedSpawner final : public ProcessSpawner {
 public:
  RecordedSpawner(ProcessSpawner& spawner, Journal& journal) : spawner_(spawner), journal_(journal) {}

  [[nodiscard]] std::shared_ptr<ChildProcess> launch(const ChildSpec& spec,
                                                     std::function<void()> ended) override {
    journal_.push_back("launch " + spec.executable.filename().string());
    return std::make_shared<RecordedChild>(spawner_.launch(spec, std::move(ended)), journal_);
  }

 private:
  class RecordedChild final : public ChildProcess {
   public:
    RecordedChild(std::shared_ptr<ChildProcess> child, Journal& journal)
        : child_(std::move(child)), journal_(journal) {}

    [[nodiscard]] bool isRunning() const override { return child_->isRunning(); }
    void interrupt() override {
      journal_.emplace_back("interrupt");
      child_->interrupt();
    }
    void terminateAfter(std::chrono::nanoseconds delay) override {
      journal_.push_back("terminate after " + inMilliseconds(delay));
      child_->terminateAfter(delay);
    }

   private:
    std::shared_ptr<ChildProcess> child_;
    Journal& journal_;
  };

  ProcessSpawner& spawner_;
  Journal& journal_;
};

class RecordedCommands final : public CommandRunner {
 public:
  RecordedCommands(CommandRunner& commands, Journal& journal) : commands_(commands), journal_(journal) {}

  [[nodiscard]] CommandResult run(const std::filesystem::path& executable,
                                  const std::vector<std::string>& arguments) override {
    journal_.emplace_back("probe");
    return commands_.run(executable, arguments);
  }

 private:
  CommandRunner& commands_;
  Journal& journal_;
};

class RecordedApplication final : public Application {
 public:
  RecordedApplication(Application& application, Journal& journal)
      : application_(application), journal_(journal) {}

  void activateIgnoringOtherApps() override {
    journal_.emplace_back("activate");
    application_.activateIgnoringOtherApps();
  }
  void terminate() override {
    journal_.emplace_back("terminate");
    application_.terminate();
  }

 private:
  Application& application_;
  Journal& journal_;
};

class RecordedAlerts final : public AlertPresenter {
 public:
  RecordedAlerts(AlertPresenter& alerts, Journal& journal) : alerts_(alerts), journal_(journal) {}

  void showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) override {
    journal_.push_back("alert " + alert.messageText);
    alerts_.showAlert(alert, std::move(answered));
  }

 private:
  AlertPresenter& alerts_;
  Journal& journal_;
};

class RecordedStatusBar final : public StatusBar {
 public:
  RecordedStatusBar(StatusBar& bar, Journal& journal) : bar_(bar), journal_(journal) {}

  [[nodiscard]] std::shared_ptr<StatusItem> makeStatusItem() override {
    journal_.emplace_back("make status item");
    auto item = bar_.makeStatusItem();
    subscriptions_.push_back(item->observe([this, &observed = *item, hadMenu = false]() mutable {
      if (std::exchange(hadMenu, observed.menu() != nullptr) || !observed.menu()) return;
      journal_.push_back("attach menu of " + std::to_string(observed.menu()->items().size()) + " items");
    }));
    return item;
  }

 private:
  StatusBar& bar_;
  Journal& journal_;
  std::vector<Observable::Subscription> subscriptions_;
};

class RecordedUrlEvents final : public UrlEventSource {
 public:
  RecordedUrlEvents(UrlEventSource& events, Journal& journal) : events_(events), journal_(journal) {}

  void setHandler(Handler handler) override {
    journal_.emplace_back("register link handler");
    events_.setHandler(std::move(handler));
  }
  void removeHandler() override {
    journal_.emplace_back("remove link handler");
    events_.removeHandler();
  }

 private:
  UrlEventSource& events_;
  Journal& journal_;
};

class RecordedWindowSystem final : public WindowSystem {
 public:
  RecordedWindowSystem(WindowSystem& windows, Journal& journal) : windows_(windows), journal_(journal) {}

  [[nodiscard]] std::unique_ptr<WindowView> makeView(Window& window) override {
    journal_.emplace_back("make window");
    return windows_.makeView(window);
  }

 private:
  WindowSystem& windows_;
  Journal& journal_;
};

class RecordedWorkspace final : public Workspace {
 public:
  RecordedWorkspace(Workspace& workspace, Journal& journal) : workspace_(workspace), journal_(journal) {}

  void openWebAddress(const std::string& url) override {
    journal_.push_back("open " + url);
    workspace_.openWebAddress(url);
  }
  void reveal(const std::filesystem::path& location) override {
    journal_.push_back("reveal " + location.filename().string());
    workspace_.reveal(location);
  }

 private:
  Workspace& workspace_;
  Journal& journal_;
};

}  // namespace zunto::testing
