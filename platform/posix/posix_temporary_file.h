// A file in a folder of the user's that is not seen there, for what is not yet complete. It gets its final
// name in one step that never replaces anything, and is removed when it never gets that far.
//
// Where the system and the file system can do that it has no name until then, so that it goes away with the
// program even when that is killed; elsewhere it has a hidden name that nobody can foresee.
//
// Owner: whoever holds it; destroying it removes the file unless it was moved. It stays the same file when
// its folder is renamed meanwhile. Thread: main thread only, except the writer, which belongs to the one
// thread that fills the file.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "platform/posix/descriptor.h"
#include "platform/temporary_file.h"

namespace zunto {

class PosixTemporaryFile final : public TemporaryFile {
 public:
  /// What the content is written through. It works on after the file has been removed; destroying it closes
  /// the descriptor.
  class Writer {
   public:
    /// Takes over a descriptor that is open for writing.
    explicit Writer(Descriptor file) : file_(std::move(file)) {}

    /// Appends all of `bytes`; blocks. Throws SystemError, such as when the disk is full.
    void write(std::string_view bytes);

    /// What else may append to the content; -1 once it is closed.
    [[nodiscard]] int descriptor() const { return file_.number(); }

    /// Closes the descriptor. Throws SystemError when the system reports only now that something could not be
    /// written. A second call does nothing.
    void close();

   private:
    Descriptor file_;
  };

  /// Makes the empty file in `folder` (absolute), readable and writable as the user's new files are. Throws
  /// SystemError.
  explicit PosixTemporaryFile(const std::filesystem::path& folder);
  PosixTemporaryFile(const PosixTemporaryFile&) = delete;
  PosixTemporaryFile& operator=(const PosixTemporaryFile&) = delete;
  ~PosixTemporaryFile() override;

  /// The file's writer; null when it was taken before.
  [[nodiscard]] std::unique_ptr<Writer> takeWriter() { return std::move(writer_); }

  /// Whether it has a name in its folder before it is moved.
  [[nodiscard]] bool hasHiddenName() const { return !name_.empty(); }

  void moveTo(const std::filesystem::path& destination) override;

 private:
  bool makeWithoutName();
  void makeWithHiddenName(const std::filesystem::path& folder);
  void linkTo(const std::filesystem::path& destination);
  void renameTo(const std::filesystem::path& destination);
  void moveOntoClaimedName(const std::filesystem::path& destination);

  Descriptor folder_;
  Descriptor nameless_;  // what gives the file its name; none when it has a hidden one, or once moved
  std::string name_;     // in the folder; empty when it has none, or once moved
  std::unique_ptr<Writer> writer_;
};

}  // namespace zunto
