// The file of a download, by both ways of moving it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "http_world.h"
#include "platform/posix/posix_temporary_file.h"
#include "platform/system_error.h"

namespace zunto::testing {
namespace {

using MoveMethod = PosixTemporaryFile::MoveMethod;

class PosixTemporaryFileTest : public ::testing::TestWithParam<MoveMethod> {
 protected:
  /// Makes the file with `content` in it.
  void make(std::string_view content) {
    file.emplace(folder.path(), GetParam());
    const auto writer = file->takeWriter();
    writer->write(content);
    writer->close();
  }

  [[nodiscard]] std::filesystem::path onlyFile() const {
    return std::filesystem::directory_iterator(folder.path())->path();
  }

  [[nodiscard]] std::string moveFailure(const std::filesystem::path& destination) {
    try {
      file->moveTo(destination);
    } catch (const SystemError& failure) {
      return failure.message();
    }
    return "no failure";
  }

  ScratchFolder folder;
  std::optional<PosixTemporaryFile> file;
};

TEST_P(PosixTemporaryFileTest, TakesItsFinalNameWithItsContent) {
  make("content");
  file->moveTo(folder.path() / "clip.mp4");
  file.reset();
  EXPECT_EQ(contentOf(folder.path() / "clip.mp4"), "content");
  EXPECT_EQ(folder.count(), 1U);
}

TEST_P(PosixTemporaryFileTest, IsRemovedWhenItIsNotMoved) {
  make("content");
  EXPECT_EQ(folder.count(), 1U);
  file.reset();
  EXPECT_EQ(folder.count(), 0U);
}

TEST_P(PosixTemporaryFileTest, IsHiddenUnderANameThatNobodyCanForesee) {
  make("");
  const std::string first = onlyFile().filename().string();
  file.reset();
  make("");
  const std::string second = onlyFile().filename().string();
  EXPECT_TRUE(first.starts_with(".zunto-"));
  EXPECT_EQ(first.size(), std::string(".zunto-").size() + 32);
  EXPECT_NE(first, second);
}

TEST_P(PosixTemporaryFileTest, HasTheModeOfTheUsersNewFiles) {
  const mode_t before = ::umask(027);
  make("content");
  ::umask(before);
  file->moveTo(folder.path() / "clip.mp4");
  struct stat status {};
  ASSERT_EQ(::stat((folder.path() / "clip.mp4").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_P(PosixTemporaryFileTest, NeverReplacesAFile) {
  make("content");
  std::ofstream(folder.path() / "clip.mp4") << "the user's";
  EXPECT_EQ(moveFailure(folder.path() / "clip.mp4"),
            "The file could not be saved as \"clip.mp4\": File exists.");
  EXPECT_EQ(contentOf(folder.path() / "clip.mp4"), "the user's");
  file.reset();
  EXPECT_EQ(folder.count(), 1U);
}

TEST_P(PosixTemporaryFileTest, NeverReplacesALinkThatLeadsNowhere) {
  make("content");
  std::filesystem::create_symlink(folder.path() / "nowhere", folder.path() / "clip.mp4");
  EXPECT_EQ(moveFailure(folder.path() / "clip.mp4"),
            "The file could not be saved as \"clip.mp4\": File exists.");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path() / "clip.mp4"));
}

TEST_P(PosixTemporaryFileTest, IsStillHeldAfterAFailedMove) {
  make("content");
  EXPECT_EQ(moveFailure(folder.path() / "missing" / "clip.mp4"),
            "The file could not be saved as \"clip.mp4\": No such file or directory.");
  file->moveTo(folder.path() / "clip.mp4");
  EXPECT_EQ(contentOf(folder.path() / "clip.mp4"), "content");
}

TEST_P(PosixTemporaryFileTest, AMoveOfAFileThatIsGoneLeavesNothing) {
  make("content");
  std::filesystem::remove(onlyFile());
  EXPECT_EQ(moveFailure(folder.path() / "clip.mp4"),
            "The file could not be saved as \"clip.mp4\": No such file or directory.");
  EXPECT_EQ(folder.count(), 0U);
}

TEST_P(PosixTemporaryFileTest, IsRemovedFromAFolderThatWasRenamedMeanwhile) {
  const std::filesystem::path inner = folder.path() / "inner";
  std::filesystem::create_directory(inner);
  file.emplace(inner, GetParam());
  std::filesystem::rename(inner, folder.path() / "renamed");
  file.reset();
  EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "renamed"));
}

TEST_P(PosixTemporaryFileTest, TheWriterOutlivesTheFile) {
  file.emplace(folder.path(), GetParam());
  const auto writer = file->takeWriter();
  EXPECT_EQ(file->takeWriter(), nullptr);
  file.reset();
  EXPECT_NO_THROW(writer->write("into the void"));
  EXPECT_NO_THROW(writer->close());
  EXPECT_EQ(folder.count(), 0U);
}

INSTANTIATE_TEST_SUITE_P(ExclusiveRename, PosixTemporaryFileTest,
                         ::testing::Values(MoveMethod::exclusiveRename));
INSTANTIATE_TEST_SUITE_P(ClaimedName, PosixTemporaryFileTest, ::testing::Values(MoveMethod::claimedName));

}  // namespace
}  // namespace zunto::testing
