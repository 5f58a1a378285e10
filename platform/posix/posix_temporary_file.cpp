#include "platform/posix/posix_temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <random>
#include <utility>

#include "platform/posix/system_failure.h"

namespace zunto {

namespace {

constexpr mode_t ordinaryFileMode = 0666;  // less what the user's umask takes away

SystemError saveFailure(const std::filesystem::path& destination, int error) {
  return systemFailure("The file could not be saved as " + quotedName(destination), error);
}

/// 128 random bits: nobody can have put a file of that name there beforehand.
std::string unpredictableName() {
  constexpr std::string_view digits = "0123456789abcdef";
  std::random_device random;
  std::string name = ".zunto-";
  for (int word = 0; word < 4; ++word) {
    unsigned int bits = random();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4) name += digits[bits & 0xF];
  }
  return name;
}

/// Only names below the folder are looked up through the descriptor, so no permission to list it is asked for
/// where the system lets a program say so.
Descriptor openFolder(const std::filesystem::path& folder) {
#ifdef O_PATH
  return Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
#else
  return Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
#endif
}

int renameExclusively(int folder, const std::string& name, const std::filesystem::path& destination) {
#ifdef __APPLE__
  return ::renameatx_np(folder, name.c_str(), AT_FDCWD, destination.c_str(), RENAME_EXCL);
#else
  return ::renameat2(folder, name.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE);
#endif
}

bool knowsNoExclusiveRename(int error) {
  constexpr std::array answers{EINVAL, ENOSYS, ENOTSUP, EOPNOTSUPP};
  return std::find(answers.begin(), answers.end(), error) != answers.end();
}

}  // namespace

void PosixTemporaryFile::Writer::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file_.number(), bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      throw systemFailure("The file could not be written", errno);
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

void PosixTemporaryFile::Writer::close() {
  if (file_.close() != 0 && errno != EINTR) throw systemFailure("The file could not be written", errno);
}

PosixTemporaryFile::PosixTemporaryFile(const std::filesystem::path& folder, MoveMethod method)
    : method_(method), name_(unpredictableName()), folder_(openFolder(folder)) {
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  Descriptor file(folder_.isOpen() ? ::openat(folder_.number(), name_.c_str(), flags, ordinaryFileMode) : -1);
  if (const int error = errno; !file.isOpen()) {
    throw systemFailure("No file could be made in the folder " + quotedName(folder), error);
  }
  writer_ = std::make_unique<Writer>(std::move(file));
}

PosixTemporaryFile::~PosixTemporaryFile() {
  if (!name_.empty()) ::unlinkat(folder_.number(), name_.c_str(), 0);
}

void PosixTemporaryFile::moveTo(const std::filesystem::path& destination) {
  if (method_ == MoveMethod::claimedName) {
    moveOntoClaimedName(destination);
  } else if (renameExclusively(folder_.number(), name_, destination) != 0) {
    const int error = errno;
    if (!knowsNoExclusiveRename(error)) throw saveFailure(destination, error);
    moveOntoClaimedName(destination);
  }
  name_.clear();
}

void PosixTemporaryFile::moveOntoClaimedName(const std::filesystem::path& destination) {
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  const Descriptor claim(::open(destination.c_str(), flags, ordinaryFileMode));
  if (!claim.isOpen()) throw saveFailure(destination, errno);
  if (::renameat(folder_.number(), name_.c_str(), AT_FDCWD, destination.c_str()) != 0) {
    const int error = errno;
    ::unlink(destination.c_str());
    throw saveFailure(destination, error);
  }
}

}  // namespace zunto
