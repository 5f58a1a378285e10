// A temporary file that exists only in a test's memory and remembers what became of it.
//
// Owner: whoever holds it, as with the real one; its record is shared with the test and outlives it.
// Thread: main thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/temporary_file.h"

namespace zunto::testing {

/// What a test may ask about one temporary file.
struct TemporaryFileRecord {
  std::filesystem::path folder;
  std::string content;
  std::optional<std::filesystem::path> destination;  ///< where it was moved to
  bool isRemoved = false;                            ///< given up without having been moved
};

class FakeTemporaryFile final : public TemporaryFile {
 public:
  /// Called before a move. Throwing SystemError makes the move fail; a test that keeps files of its own puts
  /// the content there.
  using MoveHook =
      std::function<void(const TemporaryFileRecord& file, const std::filesystem::path& destination)>;

  FakeTemporaryFile(std::shared_ptr<TemporaryFileRecord> record, MoveHook moving);
  FakeTemporaryFile(const FakeTemporaryFile&) = delete;
  FakeTemporaryFile& operator=(const FakeTemporaryFile&) = delete;
  ~FakeTemporaryFile() override;

  void moveTo(const std::filesystem::path& destination) override;

 private:
  std::shared_ptr<TemporaryFileRecord> record_;
  MoveHook moving_;
};

}  // namespace zunto::testing
