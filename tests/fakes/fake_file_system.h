// Files that exist only in a test: folders, files with their bytes, and links, with the rules of the real
// system as far as the logic can see them. It starts with the root folder alone.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <variant>
#include <vector>

#include "platform/files.h"

namespace zunto::testing {

/// The bytes of a file. They live on after the file was removed, as long as somebody has it open.
struct FakeFileData {
  std::string contents;
  bool isExecutable = false;
};

/// What one opening of a file makes: its descriptors, here and in children, share this write position.
struct FakeOpenFile {
  std::shared_ptr<FakeFileData> file;
  std::size_t position = 0;

  /// Writes at the position and moves it. Bytes that were there are replaced, a gap becomes zeros.
  void write(std::string_view bytes);
};

/// The test's side of an opened file.
class FakeOutputFile final : public OutputFile {
 public:
  FakeOutputFile(std::string quotedName, int descriptor, std::shared_ptr<FakeOpenFile> openFile);

  void seekToEnd() override;
  void close() override;
  [[nodiscard]] int descriptor() const override { return descriptor_; }

  /// The next close() fails with `reason`; the file is closed all the same.
  void failClose(std::string reason) { closeFailure_ = std::move(reason); }
  /// From now on seekToEnd() fails with `reason` (such as "Illegal seek").
  void failSeek(std::string reason) { seekFailure_ = std::move(reason); }

  /// What a child that is launched with this file writes through; none once closed.
  [[nodiscard]] std::shared_ptr<FakeOpenFile> openFile() const { return openFile_; }

 private:
  std::string quotedName_;
  int descriptor_;
  std::shared_ptr<FakeOpenFile> openFile_;
  std::optional<std::string> closeFailure_;
  std::optional<std::string> seekFailure_;
};

class FakeFileSystem final : public FileSystem, public OutputFileOpener {
 public:
  // FileSystem
  [[nodiscard]] bool exists(const std::filesystem::path& path) const override;
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& path) const override;
  void createFolder(const std::filesystem::path& path) override;
  bool createFile(const std::filesystem::path& path) override;
  void removeFile(const std::filesystem::path& path) override;
  void requireSavable(const std::filesystem::path& path) override;

  // OutputFileOpener
  [[nodiscard]] std::unique_ptr<OutputFile> openForWriting(const std::filesystem::path& path) override;

  /// Whether `path` is a folder, links followed.
  [[nodiscard]] bool isFolder(const std::filesystem::path& path) const;

  /// Whether `folder` holds nothing.
  [[nodiscard]] bool isEmpty(const std::filesystem::path& folder) const { return !hasChildren(folder); }

  /// The bytes of the file at `path`, links followed; none when no file is there.
  [[nodiscard]] std::optional<std::string> contents(const std::filesystem::path& path) const;

  /// The data of the file at `path`, which outlives its removal; nullptr when no file is there.
  [[nodiscard]] std::shared_ptr<FakeFileData> fileData(const std::filesystem::path& path) const;

  // What the world does without the program. Missing parents are made; what stands at the path is replaced.
  void addFolder(const std::filesystem::path& path);
  void addFile(const std::filesystem::path& path, std::string contents = {});
  void addExecutable(const std::filesystem::path& path);
  void addLink(const std::filesystem::path& path, std::filesystem::path target);
  void addPipe(const std::filesystem::path& path);
  /// Removes `path` and everything below it; nothing when nothing is there.
  void removeTree(const std::filesystem::path& path);

  /// From now on nothing can be made, opened for writing or removed at `path` or below it, for `reason` (such
  /// as "Read-only file system").
  void refuse(const std::filesystem::path& path, std::string reason);
  /// From now on what is opened for writing cannot be positioned, for `reason` (such as "Illegal seek").
  void refuseSeeks(std::string reason) { seekRefusal_ = std::move(reason); }
  /// Takes every refusal back.
  void refuseNothing() {
    refusals_.clear();
    seekRefusal_.reset();
  }

 private:
  struct Folder {};
  struct Link {
    std::filesystem::path target;
  };
  struct Pipe {};
  using Node = std::variant<Folder, Link, Pipe, std::shared_ptr<FakeFileData>>;
  enum class LastLink { followed, kept };
  struct Place {
    std::filesystem::path path;  ///< without links, as far as it could be followed
    std::errc error{};           ///< why nothing was found there; none when something was
    bool parentExists = false;   ///< with no_such_file_or_directory: only the last component is missing
  };

  [[nodiscard]] Place find(const std::filesystem::path& path, LastLink lastLink) const;
  void add(const std::filesystem::path& path, Node node);
  [[nodiscard]] const Node* nodeAt(const std::filesystem::path& path) const;
  [[nodiscard]] bool hasChildren(const std::filesystem::path& folder) const;
  [[nodiscard]] std::optional<std::string> refusalAt(const std::filesystem::path& path) const;

  std::map<std::filesystem::path, Node> nodes_{{"/", Folder{}}};
  std::map<std::filesystem::path, std::string> refusals_;
  std::optional<std::string> seekRefusal_;
  int nextDescriptor_ = 1000;  // far from any descriptor that a test program has by chance
};

}  // namespace zunto::testing
