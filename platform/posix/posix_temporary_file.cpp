#include "platform/posix/posix_temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <random>
#include <system_error>
#include <utility>

#include "platform/posix/system_failure.h"
#include "platform/posix/uninterrupted.h"

namespace zunto {

namespace {

constexpr mode_t ordinaryFileMode = 0666;  // less what the user's umask takes away

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
  constexpr int use = O_PATH;
#else
  constexpr int use = O_RDONLY;
#endif
  return Descriptor(uninterrupted([&] { return ::open(folder.c_str(), use | O_DIRECTORY | O_CLOEXEC); }));
}

Descriptor makeFile(int folder, const char* name, int flags) {
  return Descriptor(
      uninterrupted([&] { return ::openat(folder, name, O_WRONLY | O_CLOEXEC | flags, ordinaryFileMode); }));
}

/// Where the system shows the file that `file` is open on, whether it has a name or none.
std::string shownPath(const Descriptor& file) { return "/proc/self/fd/" + std::to_string(file.number()); }

int renameExclusively(int folder, const std::string& name, const std::filesystem::path& destination) {
#ifdef __APPLE__
  return ::renameatx_np(folder, name.c_str(), AT_FDCWD, destination.c_str(), RENAME_EXCL);
#else
  return ::renameat2(folder, name.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE);
#endif
}

SystemError creationFailure(const std::filesystem::path& folder, int error) {
  return systemFailure("No file could be made in the folder " + quotedName(folder), error);
}

bool knowsNoExclusiveRename(int error) {
  constexpr std::array answers{EINVAL, ENOSYS, ENOTSUP, EOPNOTSUPP};
  return std::find(answers.begin(), answers.end(), error) != answers.end();
}

}  // namespace

void PosixTemporaryFile::Writer::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written =
        uninterrupted([&] { return ::write(file_.number(), bytes.data(), bytes.size()); });
    if (written == -1) throw systemFailure("The file could not be written", errno);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

void PosixTemporaryFile::Writer::close() {
  if (file_.close() != 0 && errno != EINTR) throw systemFailure("The file could not be written", errno);
}

PosixTemporaryFile::PosixTemporaryFile(const std::filesystem::path& folder) : folder_(openFolder(folder)) {
  if (!folder_.isOpen()) throw creationFailure(folder, errno);
  if (!makeWithoutName()) makeWithHiddenName(folder);
}

PosixTemporaryFile::~PosixTemporaryFile() {
  if (!name_.empty()) ::unlinkat(folder_.number(), name_.c_str(), 0);
}

/// Answers whether it could; there is nothing otherwise.
bool PosixTemporaryFile::makeWithoutName() {
#ifdef O_TMPFILE
  nameless_ = makeFile(folder_.number(), ".", O_TMPFILE);
  Descriptor file(::fcntl(nameless_.number(), F_DUPFD_CLOEXEC, 0));
  // Where the system does not show it, it could never be given a name.
  std::error_code ignored;
  if (file.isOpen() && std::filesystem::exists(shownPath(nameless_), ignored)) {
    writer_ = std::make_unique<Writer>(std::move(file));
    return true;
  }
  nameless_.close();
#endif
  return false;
}

void PosixTemporaryFile::makeWithHiddenName(const std::filesystem::path& folder) {
  std::string name = unpredictableName();
  Descriptor file = makeFile(folder_.number(), name.c_str(), O_CREAT | O_EXCL);
  if (!file.isOpen()) throw creationFailure(folder, errno);
  name_ = std::move(name);
  writer_ = std::make_unique<Writer>(std::move(file));
}

void PosixTemporaryFile::moveTo(const std::filesystem::path& destination) {
  if (nameless_.isOpen()) {
    linkTo(destination);
    nameless_.close();
  } else {
    renameTo(destination);
    name_.clear();
  }
}

void PosixTemporaryFile::linkTo(const std::filesystem::path& destination) {
  const std::string file = shownPath(nameless_);
  if (::linkat(AT_FDCWD, file.c_str(), AT_FDCWD, destination.c_str(), AT_SYMLINK_FOLLOW) != 0) {
    throw saveFailure(destination, errno);
  }
}

void PosixTemporaryFile::renameTo(const std::filesystem::path& destination) {
  if (renameExclusively(folder_.number(), name_, destination) == 0) return;
  const int error = errno;
  if (!knowsNoExclusiveRename(error)) throw saveFailure(destination, error);
  moveOntoClaimedName(destination);
}

/// Where the system has no exclusive rename, a new empty file is made at the destination first and then
/// renamed over.
void PosixTemporaryFile::moveOntoClaimedName(const std::filesystem::path& destination) {
  const Descriptor claim = makeFile(AT_FDCWD, destination.c_str(), O_CREAT | O_EXCL);
  if (!claim.isOpen()) throw saveFailure(destination, errno);
  if (::renameat(folder_.number(), name_.c_str(), AT_FDCWD, destination.c_str()) != 0) {
    const int error = errno;
    ::unlink(destination.c_str());
    throw saveFailure(destination, error);
  }
}

}  // namespace zunto
