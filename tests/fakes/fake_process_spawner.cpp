#include "tests/fakes/fake_process_spawner.h"

#include <system_error>
#include <utility>

#include "platform/system_error.h"

namespace zunto::testing {
namespace {

std::string quotedName(const std::filesystem::path& path) { return '"' + path.filename().string() + '"'; }

SystemError launchFailure(const ChildSpec& spec, const std::string& reason) {
  return SystemError(quotedName(spec.executable) + " could not be started: " + reason + ".");
}

SystemError workingFolderFailure(const ChildSpec& spec, std::errc error) {
  return SystemError(quotedName(spec.executable) + " could not be started in the folder " +
                     quotedName(spec.workingFolder) + ": " + std::make_error_code(error).message() + ".");
}

}  // namespace

/// The end notices that are still to come, by child. Every delayed call holds it weakly.
struct FakeProcessSpawner::Notices {
  std::map<const FakeChild*, std::function<void()>> ended;
};

FakeChild::FakeChild(Clock& clock, ChildSpec spec, std::function<void(FakeChild&)> notifyEnd)
    : clock_(clock), spec_(std::move(spec)), notifyEnd_(std::move(notifyEnd)) {
  if (const auto* file = dynamic_cast<const FakeOutputFile*>(spec_.output.get())) output_ = file->openFile();
  spec_.output.reset();  // the child has its own descriptor, and must not keep the launcher's open
}

void FakeChild::write(std::string_view bytes) {
  if (isRunning_ && output_) output_->write(bytes);
}

void FakeChild::end() {
  if (!std::exchange(isRunning_, false)) return;
  output_.reset();
  notifyEnd_(*this);
}

void FakeChild::onSignal(int number, std::function<void(FakeChild&)> respond) {
  responses_.insert_or_assign(number, std::move(respond));
}

void FakeChild::receive(int number) {
  if (!isRunning_) return;
  signals_.push_back(Signal{number, clock_.now()});
  if (const auto response = responses_.find(number); response != responses_.end()) {
    const auto respond = response->second;
    respond(*this);
  } else if (!ignored_.contains(number)) {
    end();
  }
}

void FakeChild::receiveLater(int number, std::chrono::nanoseconds delay) {
  delayedSignals_.push_back(clock_.callLater(delay, [this, number] { receive(number); }));
}

namespace {

/// What the program holds of a child.
class FakeChildProcess final : public ChildProcess {
 public:
  explicit FakeChildProcess(std::shared_ptr<FakeChild> child) : child_(std::move(child)) {}

  [[nodiscard]] bool isRunning() const override { return child_->isRunning(); }
  void interrupt() override { child_->receive(SIGINT); }
  void terminateAfter(std::chrono::nanoseconds delay) override { child_->receiveLater(SIGTERM, delay); }

 private:
  std::shared_ptr<FakeChild> child_;
};

}  // namespace

FakeProcessSpawner::FakeProcessSpawner(Clock& clock, const FakeFileSystem& files)
    : clock_(clock), files_(files), notices_(std::make_shared<Notices>()) {}

FakeProcessSpawner::~FakeProcessSpawner() = default;

void FakeProcessSpawner::refuseWhatTheSystemRefuses(const ChildSpec& spec) const {
  if (refusal_) throw launchFailure(spec, *refusal_);
  const auto describe = [](std::errc error) { return std::make_error_code(error).message(); };
  if (!spec.output || spec.output->descriptor() < 0) {
    throw launchFailure(spec, describe(std::errc::bad_file_descriptor));
  }
  if (!files_.exists(spec.workingFolder)) {
    throw workingFolderFailure(spec, std::errc::no_such_file_or_directory);
  }
  if (!files_.isFolder(spec.workingFolder)) throw workingFolderFailure(spec, std::errc::not_a_directory);
  if (!files_.exists(spec.executable)) {
    throw launchFailure(spec, describe(std::errc::no_such_file_or_directory));
  }
  if (!files_.isExecutableFile(spec.executable)) {
    throw launchFailure(spec, describe(std::errc::permission_denied));
  }
}

std::shared_ptr<ChildProcess> FakeProcessSpawner::launch(const ChildSpec& spec, std::function<void()> ended) {
  refuseWhatTheSystemRefuses(spec);
  const std::weak_ptr<Notices> weakNotices = notices_;
  const auto notifyEnd = [&clock = clock_, weakNotices](FakeChild& child) {
    if (weakNotices.expired()) return;
    clock.post([weakNotices, key = &child] {
      const std::shared_ptr<Notices> notices = weakNotices.lock();
      if (!notices) return;
      const auto notice = notices->ended.extract(key);
      if (notice.mapped()) notice.mapped()();
    });
  };
  auto child = std::make_shared<FakeChild>(clock_, spec, notifyEnd);
  notices_->ended.emplace(child.get(), std::move(ended));
  children_.push_back(child);
  if (program_) {
    const Program program = program_;
    program(*child);
  }
  return std::make_shared<FakeChildProcess>(std::move(child));
}

}  // namespace zunto::testing
