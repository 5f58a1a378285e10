#include "tests/fakes/fake_temporary_file.h"

#include <utility>

namespace zunto::testing {

FakeTemporaryFile::FakeTemporaryFile(std::shared_ptr<TemporaryFileRecord> record, MoveHook moving)
    : record_(std::move(record)), moving_(std::move(moving)) {}

FakeTemporaryFile::~FakeTemporaryFile() {
  if (!record_->destination) record_->isRemoved = true;
}

void FakeTemporaryFile::moveTo(const std::filesystem::path& destination) {
  if (moving_) moving_(*record_, destination);
  record_->destination = destination;
}

}  // namespace zunto::testing
