#include "platform/posix/posix_command_runner.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/posix/descriptor.h"
#include "platform/posix/spawn.h"
#include "platform/posix/system_failure.h"
#include "platform/posix/uninterrupted.h"

namespace zunto {
namespace {

constexpr int signalExitStatus = 128;

struct Pipe {
  Descriptor readEnd;
  Descriptor writeEnd;
};

/// A pipe of which no child inherits an end; closed, with errno set, when the system refuses.
Pipe makePipe() {
  std::array<int, 2> ends{-1, -1};
#if defined(__APPLE__)
  // Between the two calls another thread's child could inherit an end, but every child of ours is launched
  // without descriptors that it was not given.
  if (::pipe(ends.data()) != 0) return {};
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
#else
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return {};
#endif
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// Everything up to the end of the stream, of which the first `kept` bytes are answered.
std::string drain(const Descriptor& stream, std::size_t kept) {
  std::string output;
  std::array<char, std::size_t{16} * 1024> buffer{};
  for (;;) {
    const ssize_t count =
        uninterrupted([&] { return ::read(stream.number(), buffer.data(), buffer.size()); });
    if (count <= 0) return output;
    output.append(buffer.data(), std::min(static_cast<std::size_t>(count), kept - output.size()));
  }
}

int exitStatusOf(int waitStatus) {
  return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : signalExitStatus + WTERMSIG(waitStatus);
}

}  // namespace

PosixCommandRunner::PosixCommandRunner() { keepEndedChildren(); }

CommandResult PosixCommandRunner::run(const std::filesystem::path& executable,
                                      const std::vector<std::string>& arguments) {
  const std::string subject = quotedName(executable) + " could not be started";
  Pipe pipe = makePipe();
  if (!pipe.readEnd.isOpen()) throw systemFailure(subject, errno);
  const pid_t pid = spawnProcess(
      SpawnRequest{executable, arguments, std::nullopt, std::nullopt, pipe.writeEnd.number(), std::nullopt});
  pipe.writeEnd.close();  // the end of the stream comes when the last writer closes
  CommandResult result;
  result.standardOutput = drain(pipe.readEnd, keptOutput);
  const std::optional<int> status = reapProcess(pid);
  if (!status) throw systemFailure("The result of " + quotedName(executable) + " could not be read", ECHILD);
  result.exitStatus = exitStatusOf(*status);
  return result;
}

}  // namespace zunto
