// What the disk says late must still be heard: the end of a download waits for its file to be closed.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <optional>

#include "http_world.h"
#include "platform/system_error.h"
#include "system_faults.h"

namespace zunto::testing {
namespace {

TEST(HttpFile, ADownloadFailsWhenTheDiskReportsItsFailureOnlyAsTheFileIsClosed) {
  const std::unique_ptr<HttpWorld> world = makeSplicingWorld();
  world->answer("GET", "/jobs/1/result", {.body = "content"});
  const SystemFault fault(SystemCall::close, EIO);
  std::optional<Outcome<HttpDownload>> outcome;
  HttpRequest request;
  request.url = world->url("/jobs/1/result");
  const auto transfer = world->session().download(
      request, world->folder(), [&](Outcome<HttpDownload> end) { outcome.emplace(std::move(end)); });
  ASSERT_TRUE(world->runUntil([&] { return outcome.has_value(); }));
  const auto* failure = std::get_if<SystemError>(&*outcome);
  ASSERT_NE(failure, nullptr) << "the failure was lost";
  EXPECT_EQ(failure->message(), "The file could not be written: Input/output error.");
  EXPECT_EQ(world->filesInFolder(), 0U);
}

}  // namespace
}  // namespace zunto::testing
