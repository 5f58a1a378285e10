// What every FileSystem and OutputFileOpener does, the one in memory and the real one alike, and what the
// real one owes to the system.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/posix/posix_file_system.h"
#include "platform/system_error.h"
#include "system_faults.h"
#include "temporary_folder.h"
#include "tests/fakes/fake_file_system.h"
#include "unprivileged.h"

namespace zunto::testing {
namespace {

namespace fs = std::filesystem;

class RealHarness {
 public:
  [[nodiscard]] FileSystem& files() { return files_; }
  [[nodiscard]] OutputFileOpener& opener() { return opener_; }
  [[nodiscard]] fs::path folder() const { return folder_.path(); }

  void addFolder(const fs::path& path) const { fs::create_directories(path); }
  void addFile(const fs::path& path, std::string_view contents) const {
    std::ofstream(path, std::ios::binary) << contents;
  }
  void addExecutable(const fs::path& path) const {
    addFile(path, "");
    fs::permissions(path, fs::perms::owner_all);
  }
  void addLink(const fs::path& path, const fs::path& target) const { fs::create_symlink(target, path); }
  void addPipe(const fs::path& path) const { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); }

  [[nodiscard]] bool isFolder(const fs::path& path) const { return fs::is_directory(path); }
  [[nodiscard]] bool isEmpty(const fs::path& folder) const { return fs::is_empty(folder); }
  [[nodiscard]] std::optional<std::string> contents(const fs::path& path) const {
    std::ifstream file(path, std::ios::binary);
    if (!file || fs::is_directory(path)) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
  }
  void write(OutputFile& file, std::string_view bytes) const {
    ASSERT_EQ(::write(file.descriptor(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

 private:
  TemporaryFolder folder_;
  PosixFileSystem files_;
  PosixOutputFileOpener opener_;
};

class FakeHarness {
 public:
  FakeHarness() { files_.addFolder(folder()); }
  [[nodiscard]] FileSystem& files() { return files_; }
  [[nodiscard]] OutputFileOpener& opener() { return files_; }
  [[nodiscard]] fs::path folder() const { return "/world"; }

  void addFolder(const fs::path& path) { files_.addFolder(path); }
  void addFile(const fs::path& path, std::string contents) { files_.addFile(path, std::move(contents)); }
  void addExecutable(const fs::path& path) { files_.addExecutable(path); }
  void addLink(const fs::path& path, const fs::path& target) { files_.addLink(path, target); }
  void addPipe(const fs::path& path) { files_.addPipe(path); }

  [[nodiscard]] bool isFolder(const fs::path& path) const { return files_.isFolder(path); }
  [[nodiscard]] bool isEmpty(const fs::path& folder) const { return files_.isEmpty(folder); }
  [[nodiscard]] std::optional<std::string> contents(const fs::path& path) const {
    return files_.contents(path);
  }
  void write(OutputFile& file, std::string_view bytes) const {
    dynamic_cast<FakeOutputFile&>(file).openFile()->write(bytes);
  }

 private:
  FakeFileSystem files_;
};

/// What the refusal of `operation` says; empty when it was not refused.
std::string refusalOf(const std::function<void()>& operation) {
  try {
    operation();
  } catch (const SystemError& refusal) {
    return refusal.message();
  }
  return {};
}

template <class Harness>
class FileContract : public ::testing::Test {
 protected:
  [[nodiscard]] fs::path at(const fs::path& relative) const { return world_.folder() / relative; }
  [[nodiscard]] FileSystem& files() { return world_.files(); }
  std::unique_ptr<OutputFile> open(const fs::path& relative) {
    return world_.opener().openForWriting(at(relative));
  }

  std::string refusalToSave(const fs::path& relative) {
    return refusalOf([&] { files().requireSavable(at(relative)); });
  }

  Harness world_;
};

struct HarnessNames {
  template <class Harness>
  static std::string GetName(int) {
    return std::is_same_v<Harness, FakeHarness> ? "Fake" : "Posix";
  }
};
using Harnesses = ::testing::Types<FakeHarness, RealHarness>;
TYPED_TEST_SUITE(FileContract, Harnesses, HarnessNames);

TYPED_TEST(FileContract, SeesNothingWhereNothingIs) {
  EXPECT_FALSE(this->files().exists(this->at("nothing")));
  EXPECT_FALSE(this->files().exists(this->at("no folder/nothing")));
}

TYPED_TEST(FileContract, SeesFilesAndFolders) {
  this->world_.addFile(this->at("file"), "");
  EXPECT_TRUE(this->files().exists(this->at("file")));
  EXPECT_TRUE(this->files().exists(this->at("")));
}

TYPED_TEST(FileContract, SeesNothingBelowAFile) {
  this->world_.addFile(this->at("file"), "");
  EXPECT_FALSE(this->files().exists(this->at("file/below")));
}

TYPED_TEST(FileContract, FollowsLinksWhenItLooksForSomething) {
  this->world_.addFile(this->at("file"), "");
  this->world_.addLink(this->at("link"), "file");
  this->world_.addLink(this->at("dangling"), "nothing");
  this->world_.addLink(this->at("circle"), "circle");
  EXPECT_TRUE(this->files().exists(this->at("link")));
  EXPECT_FALSE(this->files().exists(this->at("dangling")));
  EXPECT_FALSE(this->files().exists(this->at("circle")));
}

TYPED_TEST(FileContract, TakesOnlyAnExecutableRegularFileForExecutable) {
  this->world_.addExecutable(this->at("tool"));
  this->world_.addLink(this->at("link"), this->at("tool"));
  this->world_.addFile(this->at("file"), "");
  this->world_.addFolder(this->at("folder"));
  EXPECT_TRUE(this->files().isExecutableFile(this->at("tool")));
  EXPECT_TRUE(this->files().isExecutableFile(this->at("link")));
  EXPECT_FALSE(this->files().isExecutableFile(this->at("file")));
  EXPECT_FALSE(this->files().isExecutableFile(this->at("folder")));
  EXPECT_FALSE(this->files().isExecutableFile(this->at("nothing")));
}

TYPED_TEST(FileContract, MakesAFolderWithItsMissingParents) {
  this->files().createFolder(this->at("Library/Logs/ZUNTO Helper"));
  EXPECT_TRUE(this->world_.isFolder(this->at("Library/Logs/ZUNTO Helper")));
}

TYPED_TEST(FileContract, MakesAFolderWhoseNameEndsInASeparator) {
  this->files().createFolder(this->at("a/b/"));
  EXPECT_TRUE(this->world_.isFolder(this->at("a/b")));
}

TYPED_TEST(FileContract, LeavesAFolderThatExistsAsItIs) {
  this->files().createFolder(this->at("folder"));
  this->world_.addFile(this->at("folder/file"), "kept");
  this->files().createFolder(this->at("folder"));
  EXPECT_EQ(this->world_.contents(this->at("folder/file")), "kept");
}

TYPED_TEST(FileContract, MakesAFolderBehindALinkToAFolder) {
  this->world_.addFolder(this->at("elsewhere"));
  this->world_.addLink(this->at("link"), "elsewhere");
  this->files().createFolder(this->at("link"));
  this->files().createFolder(this->at("link/inner"));
  EXPECT_TRUE(this->world_.isFolder(this->at("elsewhere/inner")));
}

TYPED_TEST(FileContract, RefusesAFolderWhereAFileIs) {
  this->world_.addFile(this->at("helper"), "");
  EXPECT_EQ(refusalOf([&] { this->files().createFolder(this->at("helper")); }),
            "The folder \"helper\" could not be made: File exists.");
  EXPECT_EQ(refusalOf([&] { this->files().createFolder(this->at("helper/logs/")); }),
            "The folder \"helper\" could not be made: File exists.");
  EXPECT_EQ(this->world_.contents(this->at("helper")), "");
}

TYPED_TEST(FileContract, RefusesAFolderWhereALinkLeadsNowhere) {
  this->world_.addLink(this->at("helper"), "nothing");
  EXPECT_EQ(refusalOf([&] { this->files().createFolder(this->at("helper")); }),
            "The folder \"helper\" could not be made: File exists.");
}

TYPED_TEST(FileContract, MakesAnEmptyFile) {
  EXPECT_TRUE(this->files().createFile(this->at("helper.log")));
  EXPECT_EQ(this->world_.contents(this->at("helper.log")), "");
}

TYPED_TEST(FileContract, NeverShortensAFileThatExists) {
  this->world_.addFile(this->at("helper.log"), "kept");
  EXPECT_TRUE(this->files().createFile(this->at("helper.log")));
  EXPECT_EQ(this->world_.contents(this->at("helper.log")), "kept");
}

TYPED_TEST(FileContract, MakesTheFileThatALinkLeadsTo) {
  this->world_.addLink(this->at("helper.log"), "other.log");
  EXPECT_TRUE(this->files().createFile(this->at("helper.log")));
  EXPECT_EQ(this->world_.contents(this->at("other.log")), "");
}

TYPED_TEST(FileContract, AnswersThatAFileCouldNotBeMade) {
  this->world_.addFolder(this->at("folder"));
  EXPECT_FALSE(this->files().createFile(this->at("no folder/helper.log")));
  EXPECT_FALSE(this->files().createFile(this->at("folder")));
}

TYPED_TEST(FileContract, RemovesAFile) {
  this->world_.addFile(this->at("file"), "contents");
  this->files().removeFile(this->at("file"));
  EXPECT_FALSE(this->files().exists(this->at("file")));
}

TYPED_TEST(FileContract, RemovesALinkAndNotWhatItLeadsTo) {
  this->world_.addFile(this->at("file"), "kept");
  this->world_.addLink(this->at("link"), "file");
  this->files().removeFile(this->at("link"));
  EXPECT_FALSE(this->files().exists(this->at("link")));
  EXPECT_EQ(this->world_.contents(this->at("file")), "kept");
}

TYPED_TEST(FileContract, RemovesALinkToAFolderAndNothingInTheFolder) {
  this->world_.addFolder(this->at("folder"));
  this->world_.addFile(this->at("folder/file"), "kept");
  this->world_.addLink(this->at("link"), "folder");
  this->files().removeFile(this->at("link"));
  EXPECT_FALSE(this->files().exists(this->at("link")));
  EXPECT_EQ(this->world_.contents(this->at("folder/file")), "kept");
}

TYPED_TEST(FileContract, NeverRemovesAFolder) {
  this->world_.addFolder(this->at("folder"));
  EXPECT_EQ(refusalOf([&] { this->files().removeFile(this->at("folder")); }),
            "\"folder\" could not be removed: Is a directory.");
  EXPECT_TRUE(this->world_.isFolder(this->at("folder")));
}

TYPED_TEST(FileContract, RefusesToRemoveWhatIsNotThere) {
  EXPECT_EQ(refusalOf([&] { this->files().removeFile(this->at("song.mp3")); }),
            "\"song.mp3\" could not be removed: No such file or directory.");
}

TYPED_TEST(FileContract, FindsAPlaceForANewFileAndLeavesNothingThere) {
  EXPECT_EQ(this->refusalToSave("film.mp4"), "");
  EXPECT_TRUE(this->world_.isEmpty(this->at("")));
}

TYPED_TEST(FileContract, FindsAPlaceWhereAFileMayBeReplacedAndLeavesTheFile) {
  this->world_.addFile(this->at("film.mp4"), "older");
  this->world_.addLink(this->at("link.mp4"), "film.mp4");
  EXPECT_EQ(this->refusalToSave("film.mp4"), "");
  EXPECT_EQ(this->refusalToSave("link.mp4"), "");
  EXPECT_EQ(this->world_.contents(this->at("film.mp4")), "older");
  EXPECT_EQ(this->world_.contents(this->at("link.mp4")), "older");
}

TYPED_TEST(FileContract, FindsNoPlaceWhereAFolderIs) {
  this->world_.addFolder(this->at("folder"));
  this->world_.addLink(this->at("link"), "folder");
  EXPECT_EQ(this->refusalToSave("folder"), "The file could not be saved as \"folder\": Is a directory.");
  EXPECT_EQ(this->refusalToSave("link"), "The file could not be saved as \"link\": Is a directory.");
  EXPECT_TRUE(this->world_.isFolder(this->at("folder")));
}

TYPED_TEST(FileContract, FindsNoPlaceWhereALinkLeadsNowhere) {
  this->world_.addLink(this->at("film.mp4"), "nothing");
  EXPECT_EQ(this->refusalToSave("film.mp4"),
            "The file could not be saved as \"film.mp4\": A link that leads nowhere has that name.");
}

TYPED_TEST(FileContract, FindsNoPlaceForANameThatIsTooLong) {
  const std::string longest(255, 'x');
  EXPECT_EQ(this->refusalToSave(longest), "");
  EXPECT_EQ(this->refusalToSave(longest + "x"),
            "The file could not be saved as \"" + longest + "x\": File name too long.");
}

TYPED_TEST(FileContract, FindsNoPlaceInAFolderThatIsNotThere) {
  EXPECT_EQ(this->refusalToSave("missing/film.mp4"),
            "No file could be made in the folder \"missing\": No such file or directory.");
}

TYPED_TEST(FileContract, FindsNoPlaceBelowAFile) {
  this->world_.addFile(this->at("file"), "");
  EXPECT_EQ(this->refusalToSave("file/film.mp4"),
            "The file could not be saved as \"film.mp4\": Not a directory.");
}

TYPED_TEST(FileContract, RefusesToOpenAFileThatIsNotThere) {
  EXPECT_EQ(refusalOf([&] { static_cast<void>(this->open("helper.log")); }),
            "The file \"helper.log\" could not be opened: No such file or directory.");
  EXPECT_FALSE(this->files().exists(this->at("helper.log")));
}

TYPED_TEST(FileContract, RefusesToOpenAFolder) {
  this->world_.addFolder(this->at("helper.log"));
  EXPECT_EQ(refusalOf([&] { static_cast<void>(this->open("helper.log")); }),
            "The file \"helper.log\" could not be opened: Is a directory.");
}

TYPED_TEST(FileContract, RefusesToOpenAPipeWithoutWaitingForItsReader) {
  this->world_.addPipe(this->at("helper.log"));
  EXPECT_TRUE(this->files().exists(this->at("helper.log")));
  EXPECT_TRUE(this->files().createFile(this->at("helper.log")));
  EXPECT_EQ(refusalOf([&] { static_cast<void>(this->open("helper.log")); }),
            "The file \"helper.log\" could not be opened: It is not a regular file.");
}

TYPED_TEST(FileContract, OpensAFileAtItsStartWithoutShorteningIt) {
  this->world_.addFile(this->at("log"), "0123456789");
  const auto file = this->open("log");
  this->world_.write(*file, "abc");
  EXPECT_EQ(this->world_.contents(this->at("log")), "abc3456789");
}

TYPED_TEST(FileContract, WritesAtTheEndAfterMovingThere) {
  this->world_.addFile(this->at("log"), "first ");
  const auto file = this->open("log");
  file->seekToEnd();
  this->world_.write(*file, "second");
  EXPECT_EQ(this->world_.contents(this->at("log")), "first second");
}

TYPED_TEST(FileContract, DoesNotFollowWhatOthersAppend) {
  this->world_.addFile(this->at("log"), "");
  const auto older = this->open("log");
  older->seekToEnd();
  const auto newer = this->open("log");
  newer->seekToEnd();
  this->world_.write(*newer, "newer");
  this->world_.write(*older, "old");
  EXPECT_EQ(this->world_.contents(this->at("log")), "older");
}

TYPED_TEST(FileContract, MovesToTheEndAgainWhenAsked) {
  this->world_.addFile(this->at("log"), "");
  const auto older = this->open("log");
  const auto newer = this->open("log");
  this->world_.write(*newer, "newer");
  older->seekToEnd();
  this->world_.write(*older, "older");
  EXPECT_EQ(this->world_.contents(this->at("log")), "newerolder");
}

TYPED_TEST(FileContract, OpensTheFileThatALinkLeadsTo) {
  this->world_.addFile(this->at("other.log"), "");
  this->world_.addLink(this->at("log"), "other.log");
  this->world_.write(*this->open("log"), "text");
  EXPECT_EQ(this->world_.contents(this->at("other.log")), "text");
}

TYPED_TEST(FileContract, KeepsAnOpenFileApartFromANewOneInItsPlace) {
  this->world_.addFile(this->at("log"), "");
  const auto file = this->open("log");
  this->files().removeFile(this->at("log"));
  this->files().createFile(this->at("log"));
  this->world_.write(*file, "into the removed file");
  EXPECT_EQ(this->world_.contents(this->at("log")), "");
}

TYPED_TEST(FileContract, HasADescriptorUntilItIsClosed) {
  this->world_.addFile(this->at("log"), "");
  const auto file = this->open("log");
  EXPECT_GE(file->descriptor(), 0);
  file->close();
  EXPECT_EQ(file->descriptor(), -1);
}

TYPED_TEST(FileContract, TakesASecondCloseWithoutAWord) {
  this->world_.addFile(this->at("log"), "");
  const auto file = this->open("log");
  file->close();
  EXPECT_EQ(refusalOf([&] { file->close(); }), "");
}

TYPED_TEST(FileContract, RefusesToMoveInAClosedFile) {
  this->world_.addFile(this->at("log"), "");
  const auto file = this->open("log");
  file->close();
  EXPECT_EQ(refusalOf([&] { file->seekToEnd(); }),
            "The end of the file \"log\" could not be found: Bad file descriptor.");
}

class PosixFiles : public ::testing::Test {
 protected:
  [[nodiscard]] fs::path at(const fs::path& relative) const { return folder_.path() / relative; }

  TemporaryFolder folder_;
  PosixFileSystem files_;
  PosixOutputFileOpener opener_;
};

TEST_F(PosixFiles, ClosesTheDescriptorOfAFileThatIsLetGo) {
  files_.createFile(at("log"));
  auto file = opener_.openForWriting(at("log"));
  const int descriptor = file->descriptor();
  file.reset();
  EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST_F(PosixFiles, NeverClosesADescriptorTwice) {
  files_.createFile(at("log"));
  auto file = opener_.openForWriting(at("log"));
  file->close();
  const auto reused = opener_.openForWriting(at("log"));
  file->close();
  file.reset();
  EXPECT_NE(::fcntl(reused->descriptor(), F_GETFD), -1);
}

TEST_F(PosixFiles, ReportsWhatTheSystemReportsWhenItCloses) {
  files_.createFile(at("log"));
  const auto file = opener_.openForWriting(at("log"));
  ::close(file->descriptor());
  EXPECT_EQ(refusalOf([&] { file->close(); }), "The file \"log\" could not be closed: Bad file descriptor.");
  EXPECT_EQ(file->descriptor(), -1);
}

TEST_F(PosixFiles, RefusesToOpenAPipeThatSomebodyReads) {
  ASSERT_EQ(::mkfifo(at("helper.log").c_str(), 0600), 0);
  const int reader = ::open(at("helper.log").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(refusalOf([&] { static_cast<void>(opener_.openForWriting(at("helper.log"))); }),
            "The file \"helper.log\" could not be opened: It is not a regular file.");
  ::close(reader);
}

TEST_F(PosixFiles, RefusesToOpenADevice) {
  fs::create_symlink("/dev/null", at("helper.log"));
  EXPECT_EQ(refusalOf([&] { static_cast<void>(opener_.openForWriting(at("helper.log"))); }),
            "The file \"helper.log\" could not be opened: It is not a regular file.");
}

TEST_F(PosixFiles, GoesOnWhenASignalInterruptsTheOpening) {
  const SystemFault fault(SystemCall::open, EINTR, 2);
  EXPECT_TRUE(files_.createFile(at("log")));
  EXPECT_EQ(fault.failures(), 2);
}

TEST_F(PosixFiles, TriesANameWhereFilesCannotBeWithoutOne) {
  const SystemFault noNameless(SystemCall::makeNameless, EOPNOTSUPP);
  files_.requireSavable(at("film.mp4"));
  EXPECT_TRUE(fs::is_empty(folder_.path()));
  const SystemFault refused(SystemCall::renameExclusive, ENAMETOOLONG, 1);
  EXPECT_EQ(refusalOf([&] { files_.requireSavable(at("What? A film: one.mp4")); }),
            "The file could not be saved as \"What? A film: one.mp4\": File name too long.");
  EXPECT_TRUE(fs::is_empty(folder_.path()));
}

TEST_F(PosixFiles, TriesNoNameThatAFileHasAlready) {
  std::ofstream(at("film.mp4")) << "older";
  const SystemFault noNameless(SystemCall::makeNameless, EOPNOTSUPP);
  EXPECT_EQ(refusalOf([&] { files_.requireSavable(at("film.mp4")); }), "");
  EXPECT_TRUE(fs::exists(at("film.mp4")));
}

TEST_F(PosixFiles, LeavesPermissionsToTheUsersMask) {
  const mode_t previous = ::umask(027);
  files_.createFolder(at("folder"));
  files_.createFile(at("file"));
  ::umask(previous);
  EXPECT_EQ(fs::status(at("folder")).permissions(), fs::perms(0750));
  EXPECT_EQ(fs::status(at("file")).permissions(), fs::perms(0640));
}

TEST_F(PosixFiles, SayWhatIsForbidden) {
  fs::create_directory(at("locked"));
  std::ofstream(at("locked/log")) << "kept";
  fs::permissions(at("locked/log"), fs::perms(0444));
  fs::permissions(at("locked"), fs::perms(0555));
  fs::permissions(folder_.path(), fs::perms(0755));
  {
    const Unprivileged user;
    EXPECT_EQ(refusalOf([&] { files_.createFolder(at("locked/new")); }),
              "The folder \"new\" could not be made: Permission denied.");
    EXPECT_EQ(refusalOf([&] { static_cast<void>(opener_.openForWriting(at("locked/log"))); }),
              "The file \"log\" could not be opened: Permission denied.");
    EXPECT_EQ(refusalOf([&] { files_.removeFile(at("locked/log")); }),
              "\"log\" could not be removed: Permission denied.");
    EXPECT_EQ(refusalOf([&] { files_.requireSavable(at("locked/log")); }),
              "No file could be made in the folder \"locked\": Permission denied.");
    EXPECT_FALSE(files_.createFile(at("locked/new.log")));
    EXPECT_TRUE(files_.createFile(at("locked/log")));  // it is there, whoever may write to it
    files_.createFolder(at("locked"));
  }
  fs::permissions(at("locked"), fs::perms::owner_all);
}

}  // namespace
}  // namespace zunto::testing
