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
#include "temporary_folder.h"
#include "tests/fakes/fake_file_system.h"

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

  [[nodiscard]] bool isFolder(const fs::path& path) const { return fs::is_directory(path); }
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

  [[nodiscard]] bool isFolder(const fs::path& path) const { return files_.isFolder(path); }
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
  this->files().removeItem(this->at("file"));
  EXPECT_FALSE(this->files().exists(this->at("file")));
}

TYPED_TEST(FileContract, RemovesALinkAndNotWhatItLeadsTo) {
  this->world_.addFile(this->at("file"), "kept");
  this->world_.addLink(this->at("link"), "file");
  this->files().removeItem(this->at("link"));
  EXPECT_FALSE(this->files().exists(this->at("link")));
  EXPECT_EQ(this->world_.contents(this->at("file")), "kept");
}

TYPED_TEST(FileContract, RemovesALinkToAFolderAndNothingInTheFolder) {
  this->world_.addFolder(this->at("folder"));
  this->world_.addFile(this->at("folder/file"), "kept");
  this->world_.addLink(this->at("link"), "folder");
  this->files().removeItem(this->at("link"));
  EXPECT_FALSE(this->files().exists(this->at("link")));
  EXPECT_EQ(this->world_.contents(this->at("folder/file")), "kept");
}

TYPED_TEST(FileContract, RemovesAnEmptyFolder) {
  this->world_.addFolder(this->at("folder"));
  this->files().removeItem(this->at("folder"));
  EXPECT_FALSE(this->files().exists(this->at("folder")));
}

TYPED_TEST(FileContract, NeverRemovesAFolderWithSomethingInIt) {
  this->world_.addFolder(this->at("folder"));
  this->world_.addFile(this->at("folder/file"), "kept");
  EXPECT_EQ(refusalOf([&] { this->files().removeItem(this->at("folder")); }),
            "\"folder\" could not be removed: Directory not empty.");
  EXPECT_EQ(this->world_.contents(this->at("folder/file")), "kept");
}

TYPED_TEST(FileContract, RefusesToRemoveWhatIsNotThere) {
  EXPECT_EQ(refusalOf([&] { this->files().removeItem(this->at("song.mp3")); }),
            "\"song.mp3\" could not be removed: No such file or directory.");
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
  this->files().removeItem(this->at("log"));
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

TEST_F(PosixFiles, RefusesToMoveToTheEndOfAPipe) {
  ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
  const int reader = ::open(at("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const auto file = opener_.openForWriting(at("pipe"));
  EXPECT_EQ(refusalOf([&] { file->seekToEnd(); }),
            "The end of the file \"pipe\" could not be found: Illegal seek.");
  ::close(reader);
}

TEST_F(PosixFiles, DoesNotWaitForAReaderWhereAPipeStandsInPlaceOfTheFile) {
  ASSERT_EQ(::mkfifo(at("helper.log").c_str(), 0600), 0);
  EXPECT_TRUE(files_.createFile(at("helper.log")));
}

TEST_F(PosixFiles, LeavesPermissionsToTheUsersMask) {
  const mode_t previous = ::umask(027);
  files_.createFolder(at("folder"));
  files_.createFile(at("file"));
  ::umask(previous);
  EXPECT_EQ(fs::status(at("folder")).permissions(), fs::perms(0750));
  EXPECT_EQ(fs::status(at("file")).permissions(), fs::perms(0640));
}

/// An unprivileged user for the time of a test that runs as the superuser, to whom nothing is forbidden.
class Unprivileged {
 public:
  Unprivileged() {
    if (user_ == 0) static_cast<void>(::seteuid(nobody));
  }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;
  ~Unprivileged() {
    if (user_ == 0) static_cast<void>(::seteuid(user_));
  }

 private:
  static constexpr uid_t nobody = 65534;
  uid_t user_ = ::geteuid();
};

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
    EXPECT_EQ(refusalOf([&] { files_.removeItem(at("locked/log")); }),
              "\"log\" could not be removed: Permission denied.");
    EXPECT_FALSE(files_.createFile(at("locked/new.log")));
    EXPECT_TRUE(files_.createFile(at("locked/log")));  // it is there, whoever may write to it
    files_.createFolder(at("locked"));
  }
  fs::permissions(at("locked"), fs::perms::owner_all);
}

}  // namespace
}  // namespace zunto::testing
