// A hidden file with an unpredictable name in a folder of the user's, for what is not yet complete. It takes
// its final name by a rename that never replaces anything, and is removed when it never gets that far.
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
  /// How a move keeps from replacing a file that has appeared at the destination.
  enum class MoveMethod {
    exclusiveRename,  ///< by the system's own exclusive rename, else as below where a file system has none
    claimedName       ///< by making the destination as a new empty file first, then renaming over that
  };

  /// What the content is written through. It works on after the file has been removed; destroying it closes
  /// the descriptor.
  class Writer {
   public:
    /// Takes over a descriptor that is open for writing.
    explicit Writer(Descriptor file) : file_(std::move(file)) {}

    /// Appends all of `bytes`; blocks. Throws SystemError, such as when the disk is full.
    void write(std::string_view bytes);

    /// Closes the descriptor. Throws SystemError when the system reports only now that something could not be
    /// written. A second call does nothing.
    void close();

   private:
    Descriptor file_;
  };

  /// Makes the empty file in `folder` (absolute), readable and writable as the user's new files are. Throws
  /// SystemError.
  explicit PosixTemporaryFile(const std::filesystem::path& folder,
                              MoveMethod method = MoveMethod::exclusiveRename);
  PosixTemporaryFile(const PosixTemporaryFile&) = delete;
  PosixTemporaryFile& operator=(const PosixTemporaryFile&) = delete;
  ~PosixTemporaryFile() override;

  /// The file's writer; null when it was taken before.
  [[nodiscard]] std::unique_ptr<Writer> takeWriter() { return std::move(writer_); }

  void moveTo(const std::filesystem::path& destination) override;

 private:
  void moveOntoClaimedName(const std::filesystem::path& destination);

  MoveMethod method_;
  std::string name_;  // in the folder; empty once moved
  Descriptor folder_;
  std::unique_ptr<Writer> writer_;
};

}  // namespace zunto
