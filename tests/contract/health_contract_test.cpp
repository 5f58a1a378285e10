// What curl tells the health probe, the scripted one and the real one alike.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "environment_variable.h"
#include "http_raw_server.h"
#include "platform/posix/posix_command_runner.h"
#include "platform/posix/proxy_exemption.h"
#include "tests/fakes/fake_command_runner.h"
#include "tests/fakes/scripted_health.h"

namespace zunto::testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* healthyBody = R"({"status":"ok"})";

CommandResult probe(CommandRunner& runner, const std::string& url) {
  return runner.run("/usr/bin/curl", {"--fail", "--silent", "--max-time", "1", url});
}

class FakeHarness {
 public:
  CommandResult probeOf(const HealthAnswer& answer) {
    health_.answer(answer);
    return probe(runner_, url_);
  }
  CommandResult probeOfNobody() {
    health_.nobodyListens();
    return probe(runner_, url_);
  }

 private:
  std::string url_ = "http://127.0.0.1:43127/health";
  FakeCommandRunner runner_;
  ScriptedHealth health_{runner_};
};

class CurlHarness {
 public:
  CommandResult probeOf(const HealthAnswer& answer) {
    RawServer server([answer](RawServer::Connection& client) {
      client.readRequest();
      const bool goesOn = client.wait(answer.delay);
      if (!goesOn) return;
      const std::string length =
          answer.isEndless ? "" : "Content-Length: " + std::to_string(answer.body.size()) + "\r\n";
      client.send("HTTP/1.1 " + std::to_string(answer.status) + " Answer\r\n" + length + "\r\n" +
                  answer.body);
      if (answer.isEndless) client.waitForClient();
    });
    return probe(runner_, server.url("/health"));
  }
  CommandResult probeOfNobody() {
    std::string url;
    {
      RawServer gone([](RawServer::Connection&) {});
      url = gone.url("/health");
    }
    return probe(runner_, url);
  }

 private:
  EnvironmentVariable noProxy_{"no_proxy", "127.0.0.1"};
  PosixCommandRunner runner_;
};

template <class Harness>
class HealthContract : public ::testing::Test {
 protected:
  Harness world_;
};

struct HarnessNames {
  template <class Harness>
  static std::string GetName(int) {
    return std::is_same_v<Harness, FakeHarness> ? "Fake" : "Curl";
  }
};
using Harnesses = ::testing::Types<FakeHarness, CurlHarness>;
TYPED_TEST_SUITE(HealthContract, Harnesses, HarnessNames);

TYPED_TEST(HealthContract, AnAnswerIsPrintedWithExitStatus0) {
  const CommandResult result = this->world_.probeOf({.body = healthyBody});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.standardOutput, healthyBody);
}

TYPED_TEST(HealthContract, OfAnErrorStatusTheBodyIsNotPrintedAndTheExitStatusIs22) {
  const CommandResult result = this->world_.probeOf({.status = 500, .body = healthyBody});
  EXPECT_EQ(result.exitStatus, 22);
  EXPECT_EQ(result.standardOutput, "");
}

TYPED_TEST(HealthContract, NobodyListeningIsExitStatus7) {
  const CommandResult result = this->world_.probeOfNobody();
  EXPECT_EQ(result.exitStatus, 7);
  EXPECT_EQ(result.standardOutput, "");
}

TYPED_TEST(HealthContract, AnAnswerAfterMoreThanASecondIsExitStatus28) {
  const CommandResult result = this->world_.probeOf({.body = healthyBody, .delay = 3s});
  EXPECT_EQ(result.exitStatus, 28);
  EXPECT_EQ(result.standardOutput, "");
}

TYPED_TEST(HealthContract, AWholeBodyThatDoesNotEndWithinTheSecondIsPrintedAndTheExitStatusIs28) {
  const CommandResult result = this->world_.probeOf({.body = healthyBody, .isEndless = true});
  EXPECT_EQ(result.exitStatus, 28);
  EXPECT_EQ(result.standardOutput, healthyBody);
}

/// A proxy that every variable names by which curl looks for one; of this machine only its name is exempt.
class HostileEnvironment : public ::testing::Test {
 protected:
  static void answer(RawServer::Connection& client) {
    client.readRequest();
    client.send(answerOf(healthyBody));
  }

  RawServer proxy_{answer};
  RawServer processor_{answer};
  EnvironmentVariable http_{"http_proxy", proxy_.url("")};
  EnvironmentVariable upperCaseHttp_{"HTTP_PROXY", proxy_.url("")};
  EnvironmentVariable all_{"all_proxy", proxy_.url("")};
  EnvironmentVariable upperCaseAll_{"ALL_PROXY", proxy_.url("")};
  EnvironmentVariable exempt_{"no_proxy", std::nullopt};
  EnvironmentVariable upperCaseExempt_{"NO_PROXY", "localhost"};
  PosixCommandRunner runner_;
};

TEST_F(HostileEnvironment, BlindsAProbeWhoseHostIsNotExempt) {
  static_cast<void>(probe(runner_, processor_.url("/health")));
  EXPECT_EQ(proxy_.requests().size(), 1U);
  EXPECT_TRUE(processor_.requests().empty());
}

TEST_F(HostileEnvironment, DoesNotBlindAProbeWhoseHostIsExempt) {
  exemptFromProxies("127.0.0.1");
  const CommandResult result = probe(runner_, processor_.url("/health"));
  EXPECT_EQ(result.standardOutput, healthyBody);
  EXPECT_EQ(processor_.requests().size(), 1U);
  EXPECT_TRUE(proxy_.requests().empty());
}

TEST_F(HostileEnvironment, KeepsTheUsersOwnExemptionsAndTheProxyForTheRest) {
  exemptFromProxies("127.0.0.1");
  const std::string port = std::to_string(processor_.port());
  static_cast<void>(probe(runner_, "http://localhost:" + port + "/health"));
  EXPECT_EQ(processor_.requests().size(), 1U);
  static_cast<void>(probe(runner_, "http://127.0.0.2:" + port + "/health"));
  EXPECT_EQ(processor_.requests().size(), 1U);
  EXPECT_EQ(proxy_.requests().size(), 1U);
}

}  // namespace
}  // namespace zunto::testing
