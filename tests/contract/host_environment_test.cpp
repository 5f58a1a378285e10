// Where a POSIX machine keeps things, and what the scripted machine has in common with it.

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "environment_variable.h"
#include "platform/posix/posix_host_environment.h"
#include "temporary_folder.h"
#include "tests/fakes/fake_host_environment.h"

namespace zunto::testing {
namespace {

namespace fs = std::filesystem;

class HostEnvironmentContract : public ::testing::TestWithParam<const char*> {
 protected:
  HostEnvironmentContract() {
    if (std::string("Fake") == GetParam()) {
      auto fake = std::make_unique<FakeHostEnvironment>();
      fake->variables = {{"PATH", "/usr/bin"}};
      host_ = std::move(fake);
    } else {
      fs::create_directory(executableFolder_.path() / "resources");
      host_ = std::make_unique<PosixHostEnvironment>(executableFolder_.path());
    }
  }

  TemporaryFolder executableFolder_;
  std::unique_ptr<HostEnvironment> host_;
};

TEST_P(HostEnvironmentContract, AnswersAbsoluteFoldersWithoutATrailingSeparator) {
  for (const fs::path& folder :
       {host_->resourcesFolder().value(), host_->homeFolder(), host_->temporaryFolder()}) {
    EXPECT_TRUE(folder.is_absolute()) << folder;
    EXPECT_TRUE(folder.has_filename()) << folder;
  }
}

TEST_P(HostEnvironmentContract, AnswersItsVariablesAndAProcess) {
  EXPECT_TRUE(host_->environment().contains("PATH"));
  EXPECT_GT(host_->processIdentifier(), 1);
}

INSTANTIATE_TEST_SUITE_P(, HostEnvironmentContract, ::testing::Values("Fake", "Posix"),
                         [](const auto& instance) { return std::string(instance.param); });

class ResourcesFolder : public ::testing::Test {
 protected:
  [[nodiscard]] fs::path at(const fs::path& relative) const { return prefix_.path() / relative; }
  [[nodiscard]] std::optional<fs::path> find() const { return findResourcesFolder(at("bin")); }

  TemporaryFolder prefix_;
};

TEST_F(ResourcesFolder, IsBesideTheExecutable) {
  fs::create_directories(at("bin/resources"));
  fs::create_directories(at("share/zunto-helper"));
  EXPECT_EQ(find(), at("bin/resources"));
}

TEST_F(ResourcesFolder, IsTheSharedOneOfAnInstalledExecutable) {
  fs::create_directories(at("bin"));
  fs::create_directories(at("share/zunto-helper"));
  EXPECT_EQ(find(), at("share/zunto-helper"));
}

TEST_F(ResourcesFolder, IsNoneWhereNeitherExists) {
  fs::create_directories(at("bin"));
  fs::create_directories(at("share"));
  EXPECT_EQ(find(), std::nullopt);
}

TEST_F(ResourcesFolder, IsNoFileOfThatName) {
  fs::create_directories(at("bin"));
  fs::create_directories(at("share/zunto-helper"));
  std::ofstream{at("bin/resources")};
  EXPECT_EQ(find(), at("share/zunto-helper"));
}

TEST(HomeFolder, IsTheVariables) { EXPECT_EQ(findHomeFolder({{"HOME", "/home/someone"}}), "/home/someone"); }

TEST(HomeFolder, LosesATrailingSeparator) { EXPECT_EQ(findHomeFolder({{"HOME", "/home/a//"}}), "/home/a"); }

TEST(HomeFolder, IsTheAccountsWithoutTheVariable) {
  const passwd* account = ::getpwuid(::getuid());
  ASSERT_NE(account, nullptr);
  EXPECT_EQ(findHomeFolder({}), account->pw_dir);
  EXPECT_EQ(findHomeFolder({{"HOME", ""}}), account->pw_dir);
}

TEST(TemporaryFolderOfTheUser, IsTheVariables) {
  EXPECT_EQ(findTemporaryFolder({{"TMPDIR", "/var/tmp/"}}), "/var/tmp");
}

TEST(TemporaryFolderOfTheUser, IsTheCommonOneWithoutTheVariable) {
  EXPECT_EQ(findTemporaryFolder({}), "/tmp");
  EXPECT_EQ(findTemporaryFolder({{"TMPDIR", ""}}), "/tmp");
}

TEST(TemporaryFolderOfTheUser, IsAbsoluteWhateverTheVariableSays) {
  EXPECT_EQ(findTemporaryFolder({{"TMPDIR", "below/../mine"}}), fs::current_path() / "mine");
}

TEST(PosixHost, TakesFoldersThatADesktopKnowsByItself) {
  const PosixHostEnvironment host(HostFolders{"/bundle/resources", "/Users/someone", "/private/tmp"});
  EXPECT_EQ(host.resourcesFolder(), "/bundle/resources");
  EXPECT_EQ(host.homeFolder(), "/Users/someone");
  EXPECT_EQ(host.temporaryFolder(), "/private/tmp");
}

TEST(PosixHost, FindsItsFoldersInTheEnvironment) {
  const TemporaryFolder home;
  const EnvironmentVariable homeVariable("HOME", home.path().string());
  const EnvironmentVariable temporaryVariable("TMPDIR", std::nullopt);
  const PosixHostEnvironment host(home.path());
  EXPECT_EQ(host.homeFolder(), home.path());
  EXPECT_EQ(host.temporaryFolder(), "/tmp");
  EXPECT_EQ(host.resourcesFolder(), std::nullopt);
}

TEST(PosixHost, AnswersTheVariablesThatItWasMadeWith) {
  const EnvironmentVariable odd("ZUNTO_TEST_ODD", "a=b c");
  const EnvironmentVariable empty("ZUNTO_TEST_EMPTY", "");
  const PosixHostEnvironment host(fs::path("/"));
  const EnvironmentVariable later("ZUNTO_TEST_ODD", "changed");
  const std::map<std::string, std::string> variables = host.environment();
  EXPECT_EQ(variables.at("ZUNTO_TEST_ODD"), "a=b c");
  EXPECT_EQ(variables.at("ZUNTO_TEST_EMPTY"), "");
}

TEST(PosixHost, AnswersItsOwnProcess) {
  EXPECT_EQ(PosixHostEnvironment(fs::path("/")).processIdentifier(), ::getpid());
}

TEST(PosixHost, FindsTheFolderOfTheRunningExecutable) {
  EXPECT_TRUE(fs::exists(findExecutableFolder() / "contract_posix_tests"));
}

}  // namespace
}  // namespace zunto::testing
