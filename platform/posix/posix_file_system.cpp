#include "platform/posix/posix_file_system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <utility>

#include "platform/posix/descriptor.h"
#include "platform/posix/posix_temporary_file.h"
#include "platform/posix/system_failure.h"
#include "platform/posix/uninterrupted.h"

namespace zunto {
namespace {

// Narrowed by the user's mask.
constexpr mode_t folderPermissions = 0777;
constexpr mode_t filePermissions = 0666;

/// The kind of what `path` leads to, links followed; none when nothing is there.
std::optional<mode_t> kindOf(const std::filesystem::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return status.st_mode & S_IFMT;
}

bool isFolder(const std::filesystem::path& path) { return kindOf(path) == S_IFDIR; }

bool isRegularFile(const Descriptor& file) {
  struct stat status {};
  return ::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode);
}

/// Opens for writing without waiting: a pipe that happens to stand there would otherwise block until somebody
/// reads it. To a regular file that makes no difference.
Descriptor openFile(const std::filesystem::path& path, int moreFlags) {
  const int flags = O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | moreFlags;
  return Descriptor(uninterrupted([&] { return ::open(path.c_str(), flags, filePermissions); }));
}

class PosixOutputFile final : public OutputFile {
 public:
  PosixOutputFile(std::string name, Descriptor descriptor)
      : name_(std::move(name)), descriptor_(std::move(descriptor)) {}

  void seekToEnd() override {
    if (::lseek(descriptor_.number(), 0, SEEK_END) == -1) {
      throw systemFailure("The end of the file " + name_ + " could not be found", errno);
    }
  }

  void close() override {
    // Interrupted, it may or may not have been closed already; either way nothing was lost.
    if (descriptor_.close() != 0 && errno != EINTR) {
      throw systemFailure("The file " + name_ + " could not be closed", errno);
    }
  }

  [[nodiscard]] int descriptor() const override { return descriptor_.number(); }

 private:
  std::string name_;
  Descriptor descriptor_;
};

}  // namespace

bool PosixFileSystem::exists(const std::filesystem::path& path) const { return kindOf(path).has_value(); }

bool PosixFileSystem::isExecutableFile(const std::filesystem::path& path) const {
  return kindOf(path) == S_IFREG && ::access(path.c_str(), X_OK) == 0;
}

void PosixFileSystem::createFolder(const std::filesystem::path& path) {
  std::filesystem::path prefix;
  for (const std::filesystem::path& component : path) {
    prefix /= component;
    if (isFolder(prefix)) continue;
    if (::mkdir(prefix.c_str(), folderPermissions) == 0) continue;
    const int error = errno;
    if (isFolder(prefix)) continue;  // another program was quicker
    throw systemFailure("The folder " + quotedName(prefix) + " could not be made", error);
  }
}

bool PosixFileSystem::createFile(const std::filesystem::path& path) {
  const Descriptor file = openFile(path, O_CREAT);
  return file.isOpen() || (exists(path) && !isFolder(path));
}

void PosixFileSystem::removeFile(const std::filesystem::path& path) {
  if (::unlink(path.c_str()) != 0) throw systemFailure(quotedName(path) + " could not be removed", errno);
}

void PosixFileSystem::requireSavable(const std::filesystem::path& path) {
  struct stat status {};
  const bool isTaken = ::lstat(path.c_str(), &status) == 0;
  if (!isTaken && errno != ENOENT) throw saveFailure(path, errno);
  if (isFolder(path)) throw saveFailure(path, EISDIR);
  if (isTaken && !exists(path)) {
    throw SystemError("The file could not be saved as " + quotedName(path) +
                      ": A link that leads nowhere has that name.");
  }
  PosixTemporaryFile trial(path.parent_path());
  // Some file systems refuse a name only when a file is to get it. Where files need no name until they are
  // moved, looking the name up has told, and nothing is ever seen of the trial.
  if (isTaken || !trial.hasHiddenName()) return;
  trial.moveTo(path);
  removeFile(path);
}

std::unique_ptr<OutputFile> PosixOutputFileOpener::openForWriting(const std::filesystem::path& path) {
  const std::string subject = "The file " + quotedName(path) + " could not be opened";
  Descriptor file = openFile(path, 0);
  // What the system says of a pipe or a socket that nobody reads is not for people.
  const bool isSpecial = file.isOpen() ? !isRegularFile(file) : errno == ENXIO;
  if (isSpecial) throw SystemError(subject + ": It is not a regular file.");
  if (!file.isOpen()) throw systemFailure(subject, errno);
  return std::make_unique<PosixOutputFile>(quotedName(path), std::move(file));
}

}  // namespace zunto
