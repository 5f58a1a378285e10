// The file operations of the logic. Paths are absolute, UTF-8, in the system's form.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only. Every operation blocks for one
// short system call or a few.
#pragma once

#include <filesystem>
#include <memory>

#include "async/interface.h"
#include "platform/output_file.h"

namespace zunto {

class FileSystem : public Interface {
 public:
  /// Whether something exists at `path`, links followed.
  [[nodiscard]] virtual bool exists(const std::filesystem::path& path) const = 0;

  /// Whether `path` is a regular file, links followed, that this user may execute.
  [[nodiscard]] virtual bool isExecutableFile(const std::filesystem::path& path) const = 0;

  /// Makes the folder with its missing parents; one that exists is no error. Throws SystemError, which names
  /// the one of them that cannot be made.
  virtual void createFolder(const std::filesystem::path& path) = 0;

  /// Makes an empty file with default permissions; never shortens one that exists. Answers whether a file is
  /// there afterwards.
  virtual bool createFile(const std::filesystem::path& path) = 0;

  /// Removes one file, or the link itself when it is one; never a folder, not even an empty one. Throws
  /// SystemError.
  virtual void removeFile(const std::filesystem::path& path) = 0;

  /// Throws SystemError when a file that is made now could not be saved at `path`, and leaves everything as
  /// it is: the folder is missing or cannot be written, the file system refuses the name, or what stands
  /// there is no file that could be replaced but a folder, or a link that leads nowhere. Only saving itself
  /// is proof.
  virtual void requireSavable(const std::filesystem::path& path) = 0;
};

/// Opens files that children write to.
class OutputFileOpener : public Interface {
 public:
  /// Opens an existing file for writing from its start, without append mode, without shortening it,
  /// close-on-exec. Never waits: a pipe, a device or a socket is refused. Throws SystemError.
  [[nodiscard]] virtual std::unique_ptr<OutputFile> openForWriting(const std::filesystem::path& path) = 0;
};

}  // namespace zunto
