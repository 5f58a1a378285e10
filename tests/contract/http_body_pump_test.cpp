// How bytes come from a connection into a file, with and without the system's help.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "http_world.h"
#include "platform/beast/body_pump.h"
#include "system_faults.h"

namespace zunto::testing {
namespace {

class BodyPumpTest : public ::testing::TestWithParam<BodyPump::Method> {
 protected:
  BodyPumpTest() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    server = Descriptor(ends[0]);
    client = Descriptor(ends[1]);
  }

  [[nodiscard]] PosixTemporaryFile::Writer open(int flags) const {
    return PosixTemporaryFile::Writer(Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | flags, 0600)));
  }

  void arrive(std::string_view bytes) const {
    EXPECT_EQ(::write(server.number(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  ScratchFolder folder;
  std::filesystem::path path = folder.path() / "file";
  Descriptor server;
  Descriptor client;
  BodyPump pump{GetParam()};
};

TEST_P(BodyPumpTest, MovesWhatHasArrivedButNoMoreThanAsked) {
  PosixTemporaryFile::Writer file = open(O_TRUNC);
  file.write("before ");
  arrive("abcdef");
  EXPECT_EQ(pump.move(client.number(), file, 4), 4U);
  EXPECT_EQ(pump.move(client.number(), file, 100), 2U);
  EXPECT_EQ(contentOf(path), "before abcdef");
}

TEST_P(BodyPumpTest, TellsNothingThereFromTheEnd) {
  PosixTemporaryFile::Writer file = open(O_TRUNC);
  EXPECT_EQ(pump.move(client.number(), file, 100), std::nullopt);
  server.close();
  EXPECT_EQ(pump.move(client.number(), file, 100), 0U);
}

// splice(2) refuses a file that is open for appending, as it does whole kinds of file systems.
TEST_P(BodyPumpTest, MovesIntoAFileThatTakesOnlyWrites) {
  PosixTemporaryFile::Writer file = open(O_APPEND);
  const std::string large(100'000, 'x');
  arrive(large);
  EXPECT_EQ(pump.move(client.number(), file, 1'000'000), large.size());
  arrive("more");
  EXPECT_EQ(pump.move(client.number(), file, 100), 4U);
  EXPECT_EQ(contentOf(path), large + "more");
}

// As a sandbox may.
TEST_P(BodyPumpTest, MovesWhereTheSystemRefusesToSplice) {
  for (const int refusal : {EINVAL, ENOSYS, EPERM}) {
    PosixTemporaryFile::Writer file = open(O_TRUNC);
    const SystemFault fault(SystemCall::splice, refusal);
    BodyPump refused(GetParam());
    arrive("abc");
    EXPECT_EQ(refused.move(client.number(), file, 100), 3U);
    EXPECT_EQ(refused.move(client.number(), file, 100), std::nullopt);
    EXPECT_EQ(contentOf(path), "abc");
  }
}

TEST_P(BodyPumpTest, GoesOnAfterAnInterruption) {
  PosixTemporaryFile::Writer file = open(O_TRUNC);
  arrive("abc");
  std::optional<std::size_t> moved;
  {
    const SystemFault fault(SystemCall::splice, EINTR, 1);
    moved = pump.move(client.number(), file, 100);
  }
  if (!moved) moved = pump.move(client.number(), file, 100);
  EXPECT_EQ(moved, 3U);
  EXPECT_EQ(contentOf(path), "abc");
}

TEST_P(BodyPumpTest, NoChildInheritsItsPipe) {
  const std::set<int> before = inheritedDescriptors();
  const BodyPump another(GetParam());
  EXPECT_EQ(inheritedDescriptors(), before);
}

TEST_P(BodyPumpTest, SaysThatTheConnectionIsLost) {
  PosixTemporaryFile::Writer file = open(O_TRUNC);
  try {
    static_cast<void>(pump.move(-1, file, 100));
    FAIL() << "moved from nowhere";
  } catch (const SystemError& failure) {
    EXPECT_EQ(failure.message(), "The connection to the local processor was lost.");
  }
}

INSTANTIATE_TEST_SUITE_P(Splicing, BodyPumpTest, ::testing::Values(BodyPump::Method::splice));
INSTANTIATE_TEST_SUITE_P(Copying, BodyPumpTest, ::testing::Values(BodyPump::Method::copy));

}  // namespace
}  // namespace zunto::testing
