// The files of a POSIX system.
//
// Owner: the program's entry; destroying them does nothing more. Thread: main thread only.
#pragma once

#include <filesystem>
#include <memory>

#include "platform/files.h"

namespace zunto {

class PosixFileSystem final : public FileSystem {
 public:
  [[nodiscard]] bool exists(const std::filesystem::path& path) const override;
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& path) const override;
  void createFolder(const std::filesystem::path& path) override;
  bool createFile(const std::filesystem::path& path) override;
  void removeFile(const std::filesystem::path& path) override;
  void requireSavable(const std::filesystem::path& path) override;
};

class PosixOutputFileOpener final : public OutputFileOpener {
 public:
  [[nodiscard]] std::unique_ptr<OutputFile> openForWriting(const std::filesystem::path& path) override;
};

}  // namespace zunto
