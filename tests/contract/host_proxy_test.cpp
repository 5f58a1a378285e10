// What is exempt from the proxies of the environment.

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <ostream>
#include <string>

#include "environment_variable.h"
#include "platform/posix/posix_host_environment.h"
#include "platform/posix/proxy_exemption.h"

namespace zunto::testing {
namespace {

using Value = std::optional<std::string>;

struct ExemptionRow {
  std::string name;
  Value lowerCase;  ///< no_proxy as the program is started
  Value upperCase;  ///< NO_PROXY as the program is started
  std::string lowerCaseAfterwards;
  std::string upperCaseAfterwards;

  friend void PrintTo(const ExemptionRow& row, std::ostream* out) { *out << row.name; }
};

class ProxyExemptionTable : public ::testing::TestWithParam<ExemptionRow> {};

TEST_P(ProxyExemptionTable, AddsTheHostToBothListsAndKeepsWhatIsThere) {
  const EnvironmentVariable lowerCase("no_proxy", GetParam().lowerCase);
  const EnvironmentVariable upperCase("NO_PROXY", GetParam().upperCase);
  exemptFromProxies("127.0.0.1");
  EXPECT_EQ(readEnvironment().at("no_proxy"), GetParam().lowerCaseAfterwards);
  EXPECT_EQ(readEnvironment().at("NO_PROXY"), GetParam().upperCaseAfterwards);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ProxyExemptionTable,
    ::testing::Values(
        ExemptionRow{"NeitherIsSet", std::nullopt, std::nullopt, "127.0.0.1", "127.0.0.1"},
        ExemptionRow{"BothAreEmpty", "", "", "127.0.0.1", "127.0.0.1"},
        ExemptionRow{"OneHost", "a.example", "a.example", "a.example,127.0.0.1", "a.example,127.0.0.1"},
        ExemptionRow{"OnlyTheLowerCaseOne", "a.example", std::nullopt, "a.example,127.0.0.1",
                     "a.example,127.0.0.1"},
        ExemptionRow{"OnlyTheUpperCaseOne", std::nullopt, "b.example", "b.example,127.0.0.1",
                     "b.example,127.0.0.1"},
        ExemptionRow{"AnEmptyLowerCaseOne", "", "b.example", "b.example,127.0.0.1", "b.example,127.0.0.1"},
        ExemptionRow{"DifferentLists", "a.example", "b.example, c.example", "a.example,127.0.0.1",
                     "b.example, c.example,127.0.0.1"},
        ExemptionRow{"AlreadyThere", "127.0.0.1", "a.example, 127.0.0.1 ,b", "127.0.0.1",
                     "a.example, 127.0.0.1 ,b"},
        ExemptionRow{"AlreadyLast", "a.example,127.0.0.1", std::nullopt, "a.example,127.0.0.1",
                     "a.example,127.0.0.1"},
        ExemptionRow{"OneThatOnlyLooksAlike", "127.0.0.10,x127.0.0.1", "127.0.0.1:8080",
                     "127.0.0.10,x127.0.0.1,127.0.0.1", "127.0.0.1:8080,127.0.0.1"},
        ExemptionRow{"Everything", "*", std::nullopt, "*", "*"},
        ExemptionRow{"EverythingInOneOfThem", "a.example", "*", "a.example,127.0.0.1", "*"},
        ExemptionRow{"AnAsteriskAmongOthers", "*,a", "*.a.example", "*,a,127.0.0.1", "*.a.example,127.0.0.1"},
        ExemptionRow{"BlanksOnly", " ", ",", " ,127.0.0.1", ",,127.0.0.1"}),
    [](const auto& row) { return row.param.name; });

TEST(ProxyExemption, DoneTwiceIsDoneOnce) {
  const EnvironmentVariable lowerCase("no_proxy", "a.example");
  const EnvironmentVariable upperCase("NO_PROXY", std::nullopt);
  exemptFromProxies("127.0.0.1");
  exemptFromProxies("127.0.0.1");
  EXPECT_STREQ(std::getenv("no_proxy"), "a.example,127.0.0.1");
}

}  // namespace
}  // namespace zunto::testing
