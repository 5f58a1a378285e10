#include "platform/posix/posix_file_system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "platform/posix/descriptor.h"
#include "platform/posix/system_failure.h"

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

Descriptor openFile(const std::filesystem::path& path, int flags) {
  int number = -1;
  do {
    number = ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, filePermissions);
  } while (number == -1 && errno == EINTR);
  return Descriptor(number);
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
  // Without waiting: a pipe that happens to stand there would otherwise block until somebody reads it.
  const Descriptor file = openFile(path, O_WRONLY | O_CREAT | O_NONBLOCK);
  return file.isOpen() || (exists(path) && !isFolder(path));
}

void PosixFileSystem::removeItem(const std::filesystem::path& path) {
  if (std::remove(path.c_str()) != 0) throw systemFailure(quotedName(path) + " could not be removed", errno);
}

std::unique_ptr<OutputFile> PosixOutputFileOpener::openForWriting(const std::filesystem::path& path) {
  Descriptor file = openFile(path, O_WRONLY);
  if (!file.isOpen()) throw systemFailure("The file " + quotedName(path) + " could not be opened", errno);
  return std::make_unique<PosixOutputFile>(quotedName(path), std::move(file));
}

}  // namespace zunto
