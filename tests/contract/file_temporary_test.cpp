// The file that a download is written to, in each of the three ways that file systems allow.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/posix/posix_temporary_file.h"
#include "platform/system_error.h"
#include "system_faults.h"
#include "temporary_folder.h"
#include "unprivileged.h"

namespace zunto::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// What a file system can do for a file that is not yet complete.
enum class Ability { namelessFiles, exclusiveRename, neither };

/// The name by which test reports call it.
void PrintTo(Ability ability, std::ostream* out) {
  switch (ability) {
    case Ability::namelessFiles:
      *out << "nameless files";
      break;
    case Ability::exclusiveRename:
      *out << "exclusive rename";
      break;
    case Ability::neither:
      *out << "neither";
      break;
  }
}

class TemporaryFileCase : public ::testing::TestWithParam<Ability> {
 protected:
  TemporaryFileCase() {
    if (GetParam() != Ability::namelessFiles) noNameless_.emplace(SystemCall::makeNameless, EOPNOTSUPP);
    if (GetParam() == Ability::neither) noExclusiveRename_.emplace(SystemCall::renameExclusive, EINVAL);
  }

  [[nodiscard]] fs::path at(const fs::path& name) const { return folder_.path() / name; }

  /// What anybody sees in the folder, hidden names included.
  [[nodiscard]] std::vector<std::string> seen() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_.path())) names.push_back(entry.path().filename());
    return names;
  }

  [[nodiscard]] static std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// Makes the file with `content` in it.
  void make(std::string_view content) {
    file_.emplace(folder_.path());
    const auto writer = file_->takeWriter();
    writer->write(content);
    writer->close();
  }

  [[nodiscard]] std::string moveFailure(const fs::path& destination) {
    try {
      file_->moveTo(destination);
    } catch (const SystemError& failure) {
      return failure.message();
    }
    return "no failure";
  }

  TemporaryFolder folder_;
  std::optional<PosixTemporaryFile> file_;

 private:
  std::optional<SystemFault> noNameless_;
  std::optional<SystemFault> noExclusiveRename_;
};

TEST_P(TemporaryFileCase, TakesItsFinalNameWithItsContent) {
  make("content");
  file_->moveTo(at("clip.mp4"));
  file_.reset();
  EXPECT_EQ(contentOf(at("clip.mp4")), "content");
  EXPECT_THAT(seen(), SizeIs(1));
}

TEST_P(TemporaryFileCase, LeavesNothingWhenItIsNotMoved) {
  make("content");
  file_.reset();
  EXPECT_THAT(seen(), IsEmpty());
}

TEST_P(TemporaryFileCase, HasTheModeOfTheUsersNewFiles) {
  const mode_t before = ::umask(027);
  make("content");
  ::umask(before);
  file_->moveTo(at("clip.mp4"));
  struct stat status {};
  ASSERT_EQ(::stat(at("clip.mp4").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_P(TemporaryFileCase, NeverReplacesAFile) {
  make("content");
  std::ofstream(at("clip.mp4")) << "the user's";
  EXPECT_EQ(moveFailure(at("clip.mp4")), "The file could not be saved as \"clip.mp4\": File exists.");
  EXPECT_EQ(contentOf(at("clip.mp4")), "the user's");
  file_.reset();
  EXPECT_THAT(seen(), SizeIs(1));
}

TEST_P(TemporaryFileCase, NeverReplacesALinkThatLeadsNowhere) {
  make("content");
  fs::create_symlink(at("nowhere"), at("clip.mp4"));
  EXPECT_EQ(moveFailure(at("clip.mp4")), "The file could not be saved as \"clip.mp4\": File exists.");
  EXPECT_TRUE(fs::is_symlink(at("clip.mp4")));
}

TEST_P(TemporaryFileCase, NeverReplacesAFolder) {
  make("content");
  fs::create_directory(at("clip.mp4"));
  EXPECT_EQ(moveFailure(at("clip.mp4")), "The file could not be saved as \"clip.mp4\": File exists.");
  EXPECT_TRUE(fs::is_directory(at("clip.mp4")));
}

TEST_P(TemporaryFileCase, IsStillHeldAfterAFailedMove) {
  make("content");
  EXPECT_EQ(moveFailure(at("missing/clip.mp4")),
            "The file could not be saved as \"clip.mp4\": No such file or directory.");
  file_->moveTo(at("clip.mp4"));
  EXPECT_EQ(contentOf(at("clip.mp4")), "content");
}

TEST_P(TemporaryFileCase, IsRemovedFromAFolderThatWasRenamedMeanwhile) {
  fs::create_directory(at("inner"));
  file_.emplace(at("inner"));
  fs::rename(at("inner"), at("renamed"));
  file_.reset();
  EXPECT_TRUE(fs::is_empty(at("renamed")));
}

TEST_P(TemporaryFileCase, TheWriterOutlivesTheFile) {
  file_.emplace(folder_.path());
  const auto writer = file_->takeWriter();
  EXPECT_EQ(file_->takeWriter(), nullptr);
  file_.reset();
  EXPECT_NO_THROW(writer->write("into the void"));
  EXPECT_NO_THROW(writer->close());
  EXPECT_THAT(seen(), IsEmpty());
}

TEST_P(TemporaryFileCase, StandsInAFolderThatMayBeWrittenButNotRead) {
  fs::permissions(folder_.path(), fs::perms(0333));
  {
    const Unprivileged user;
    make("content");
    file_->moveTo(at("clip.mp4"));
    file_.emplace(folder_.path());
    file_.reset();
  }
  fs::permissions(folder_.path(), fs::perms::owner_all);
  EXPECT_EQ(contentOf(at("clip.mp4")), "content");
  EXPECT_THAT(seen(), SizeIs(1));
}

TEST_P(TemporaryFileCase, GoesOnWhenASignalInterruptsTheSystem) {
  const SystemFault opening(SystemCall::open, EINTR, 1);
  const SystemFault writing(SystemCall::write, EINTR, 2);
  make("content");
  file_->moveTo(at("clip.mp4"));
  EXPECT_EQ(contentOf(at("clip.mp4")), "content");
  EXPECT_EQ(opening.failures() + writing.failures(), 3);
}

TEST_P(TemporaryFileCase, IsWholeWhenASignalInterruptsItsClosing) {
  const SystemFault closing(SystemCall::close, EINTR, 1);
  make("content");
  file_->moveTo(at("clip.mp4"));
  EXPECT_EQ(contentOf(at("clip.mp4")), "content");
  EXPECT_EQ(closing.failures(), 1);
}

TEST_P(TemporaryFileCase, ReportsWhatTheDiskReportsWhenTheFileIsClosed) {
  file_.emplace(folder_.path());
  const auto writer = file_->takeWriter();
  writer->write("content");
  const SystemFault fault(SystemCall::close, EIO, 1);
  try {
    writer->close();
    FAIL() << "the failure was lost";
  } catch (const SystemError& failure) {
    EXPECT_EQ(failure.message(), "The file could not be written: Input/output error.");
  }
}

TEST_P(TemporaryFileCase, SaysWhichFolderTakesNoFiles) {
  try {
    file_.emplace("/proc/self");
    FAIL() << "a file was made there";
  } catch (const SystemError& failure) {
    EXPECT_THAT(failure.message(), ::testing::StartsWith("No file could be made in the folder \"self\": "));
  }
}

INSTANTIATE_TEST_SUITE_P(WithoutName, TemporaryFileCase, ::testing::Values(Ability::namelessFiles));
INSTANTIATE_TEST_SUITE_P(HiddenName, TemporaryFileCase, ::testing::Values(Ability::exclusiveRename));
INSTANTIATE_TEST_SUITE_P(ClaimedName, TemporaryFileCase, ::testing::Values(Ability::neither));

using NamelessFile = TemporaryFileCase;

TEST_P(NamelessFile, IsNotInItsFolderAtAll) {
  make("content");
  EXPECT_FALSE(file_->hasHiddenName());
  EXPECT_THAT(seen(), IsEmpty());
}

TEST_P(NamelessFile, LeavesNothingWhenTheProgramIsKilled) {
  std::array<int, 2> ready{};
  ASSERT_EQ(::pipe(ready.data()), 0);
  const pid_t program = ::fork();
  if (program == 0) {
    make("half of it");
    static_cast<void>(::write(ready[1], "!", 1));
    for (;;) ::pause();
  }
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  ::kill(program, SIGKILL);
  ASSERT_EQ(::waitpid(program, nullptr, 0), program);
  EXPECT_THAT(seen(), IsEmpty());
  for (const int end : ready) ::close(end);
}

INSTANTIATE_TEST_SUITE_P(WithoutName, NamelessFile, ::testing::Values(Ability::namelessFiles));

using HiddenFile = TemporaryFileCase;

TEST_P(HiddenFile, HasANameThatNobodyCanForesee) {
  make("");
  ASSERT_THAT(seen(), SizeIs(1));
  const std::string first = seen()[0];
  file_.reset();
  make("");
  ASSERT_THAT(seen(), SizeIs(1));
  EXPECT_TRUE(first.starts_with(".zunto-"));
  EXPECT_EQ(first.size(), std::string(".zunto-").size() + 32);
  EXPECT_NE(first, seen()[0]);
}

TEST_P(HiddenFile, AMoveOfAFileThatIsGoneLeavesNothing) {
  make("content");
  ASSERT_THAT(seen(), SizeIs(1));
  fs::remove(at(seen()[0]));
  EXPECT_EQ(moveFailure(at("clip.mp4")),
            "The file could not be saved as \"clip.mp4\": No such file or directory.");
  EXPECT_THAT(seen(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(HiddenName, HiddenFile, ::testing::Values(Ability::exclusiveRename));
INSTANTIATE_TEST_SUITE_P(ClaimedName, HiddenFile, ::testing::Values(Ability::neither));

}  // namespace
}  // namespace zunto::testing
