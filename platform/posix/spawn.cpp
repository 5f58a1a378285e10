#include "platform/posix/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>

#include "platform/posix/system_failure.h"
#include "platform/posix/uninterrupted.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): macOS declares it nowhere

namespace zunto {
namespace {

constexpr int firstOtherDescriptor = 3;

/// Argument and environment lists as the system takes them. The strings must outlive it.
std::vector<char*> pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  pointers.reserve(strings.size() + 1);
  for (std::string& string : strings) pointers.push_back(string.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// The steps that the child takes before it becomes the executable. The first failure is kept and answered by
/// error(): the system cannot go on with a list that lacks a step.
class FileActions {
 public:
  FileActions() { keep(posix_spawn_file_actions_init(&actions_)); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }

  void open(int target, int flags) {
    keep(posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", flags, 0));
  }
  void duplicate(int source, int target) {
    keep(posix_spawn_file_actions_adddup2(&actions_, source, target));
  }
  void enter(const std::filesystem::path& folder) {
    keep(posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str()));
  }
  void closeEverythingElse() {
#if !defined(__APPLE__)  // there the attributes say it
    keep(posix_spawn_file_actions_addclosefrom_np(&actions_, firstOtherDescriptor));
#endif
  }

  [[nodiscard]] int error() const { return error_; }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  void keep(int error) {
    if (error_ == 0) error_ = error;
  }

  posix_spawn_file_actions_t actions_{};
  int error_ = 0;
};

/// Default dispositions for every signal, an empty mask.
class SpawnAttributes {
 public:
  SpawnAttributes() : error_(posix_spawnattr_init(&attributes_)) {
    if (error_ != 0) return;
    sigset_t signals;
    sigfillset(&signals);
    sigdelset(&signals, SIGKILL);
    sigdelset(&signals, SIGSTOP);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    error_ = posix_spawnattr_setflags(&attributes_, flags);
  }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }

  [[nodiscard]] int error() const { return error_; }
  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
#if defined(__APPLE__)
  static constexpr short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_CLOEXEC_DEFAULT;
#else
  static constexpr short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
#endif

  posix_spawnattr_t attributes_{};
  int error_ = 0;
};

/// Why nothing can run in `folder`, as an errno value; 0 when something can.
int refusalToEnter(const std::filesystem::path& folder) {
  struct stat status {};
  if (::stat(folder.c_str(), &status) != 0) return errno;
  if (!S_ISDIR(status.st_mode)) return ENOTDIR;
  return ::access(folder.c_str(), X_OK) == 0 ? 0 : errno;
}

/// The system reports one error number for all steps of a launch; the user is told which of them it was.
SystemError launchFailure(const SpawnRequest& request, int error) {
  const std::string subject = quotedName(request.executable) + " could not be started";
  if (request.workingFolder) {
    if (const int refusal = refusalToEnter(*request.workingFolder)) {
      return systemFailure(subject + " in the folder " + quotedName(*request.workingFolder), refusal);
    }
  }
  return systemFailure(subject, error);
}

/// The descriptors are duplicated above the standard ones first, so that no step of the child overwrites what
/// a later one needs, even in a program that was started with its standard descriptors closed.
struct Outputs {
  Descriptor standardOutput;
  Descriptor standardError;
};

Outputs duplicateOutputs(const SpawnRequest& request) {
  Outputs outputs{duplicateAboveStandard(request.standardOutput), {}};
  if (!outputs.standardOutput.isOpen()) throw launchFailure(request, errno);
  if (request.standardError) {
    outputs.standardError = duplicateAboveStandard(*request.standardError);
    if (!outputs.standardError.isOpen()) throw launchFailure(request, errno);
  }
  return outputs;
}

void describeSteps(FileActions& actions, const SpawnRequest& request, const Outputs& outputs) {
  actions.open(STDIN_FILENO, O_RDONLY);
  actions.duplicate(outputs.standardOutput.number(), STDOUT_FILENO);
  if (outputs.standardError.isOpen()) {
    actions.duplicate(outputs.standardError.number(), STDERR_FILENO);
  } else {
    actions.open(STDERR_FILENO, O_WRONLY);
  }
  if (request.workingFolder) actions.enter(*request.workingFolder);
  actions.closeEverythingElse();
}

}  // namespace

pid_t spawnProcess(const SpawnRequest& request) {
  const Outputs outputs = duplicateOutputs(request);
  FileActions actions;
  describeSteps(actions, request, outputs);
  if (actions.error() != 0) throw launchFailure(request, actions.error());
  const SpawnAttributes attributes;
  if (attributes.error() != 0) throw launchFailure(request, attributes.error());

  std::vector<std::string> arguments{request.executable.string()};
  arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
  std::vector<std::string> environment = request.environment.value_or(std::vector<std::string>());
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<char*> environmentPointers = pointersTo(environment);
  pid_t pid = -1;
  const int error =
      posix_spawn(&pid, request.executable.c_str(), actions.get(), attributes.get(), argumentPointers.data(),
                  request.environment ? environmentPointers.data() : environ);
  if (error != 0) throw launchFailure(request, error);
  return pid;
}

std::optional<int> reapProcess(pid_t pid) {
  int status = 0;
  const pid_t reaped = uninterrupted([&] { return ::waitpid(pid, &status, 0); });
  return reaped == pid ? std::optional(status) : std::nullopt;
}

void keepEndedChildren() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0) return;
  if ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN) action.sa_handler = SIG_DFL;
  action.sa_flags &= ~SA_NOCLDWAIT;
  ::sigaction(SIGCHLD, &action, nullptr);
}

Descriptor duplicateAboveStandard(int descriptor) {
  return Descriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, firstOtherDescriptor));
}

}  // namespace zunto
