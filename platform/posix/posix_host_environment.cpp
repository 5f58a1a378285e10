#include "platform/posix/posix_host_environment.h"

#include <pwd.h>
#include <unistd.h>

#if defined(__APPLE__)
#include <mach-o/dyld.h>

#include <cerrno>
#include <cstdint>
#endif

#include <string_view>
#include <system_error>
#include <utility>

#include "platform/posix/system_failure.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): macOS declares it nowhere

namespace zunto {
namespace {

/// `path` as an absolute one without "." and ".." and without a trailing separator.
std::filesystem::path tidied(const std::filesystem::path& path) {
  std::error_code ignored;  // without a working folder a relative path stays as it is
  const std::filesystem::path absolute = std::filesystem::absolute(path, ignored).lexically_normal();
  return absolute.has_filename() ? absolute : absolute.parent_path();
}

std::optional<std::filesystem::path> folderFromVariable(const std::map<std::string, std::string>& environment,
                                                        const std::string& name) {
  const auto variable = environment.find(name);
  if (variable == environment.end() || variable->second.empty()) return std::nullopt;
  return tidied(variable->second);
}

std::filesystem::path pathOfExecutable() {
#if defined(__APPLE__)
  std::uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);
  std::string path(size, '\0');
  if (_NSGetExecutablePath(path.data(), &size) != 0) {
    throw systemFailure("The program's own folder could not be found", ENAMETOOLONG);
  }
  return std::filesystem::canonical(path.c_str());
#else
  return std::filesystem::read_symlink("/proc/self/exe");
#endif
}

}  // namespace

PosixHostEnvironment::PosixHostEnvironment(HostFolders folders)
    : environment_(readEnvironment()), folders_(std::move(folders)) {}

PosixHostEnvironment::PosixHostEnvironment(const std::filesystem::path& executableFolder)
    : environment_(readEnvironment()),
      folders_{findResourcesFolder(executableFolder), findHomeFolder(environment_),
               findTemporaryFolder(environment_)} {}

std::optional<std::filesystem::path> PosixHostEnvironment::resourcesFolder() const {
  return folders_.resources;
}

std::filesystem::path PosixHostEnvironment::homeFolder() const { return folders_.home; }

std::filesystem::path PosixHostEnvironment::temporaryFolder() const { return folders_.temporary; }

std::map<std::string, std::string> PosixHostEnvironment::environment() const { return environment_; }

int PosixHostEnvironment::processIdentifier() const { return ::getpid(); }

std::filesystem::path findExecutableFolder() {
  try {
    return pathOfExecutable().parent_path();
  } catch (const std::filesystem::filesystem_error& error) {
    throw systemFailure("The program's own folder could not be found", error.code().value());
  }
}

std::optional<std::filesystem::path> findResourcesFolder(const std::filesystem::path& executableFolder) {
  for (const char* place : {"resources", "../share/zunto-helper"}) {
    std::filesystem::path candidate = tidied(executableFolder / place);
    std::error_code ignored;
    if (std::filesystem::is_directory(candidate, ignored)) return candidate;
  }
  return std::nullopt;
}

std::filesystem::path findHomeFolder(const std::map<std::string, std::string>& environment) {
  if (auto home = folderFromVariable(environment, "HOME")) return *home;
  const passwd* account = ::getpwuid(::getuid());  // NOLINT(concurrency-mt-unsafe): main thread only
  if (!account || !account->pw_dir || *account->pw_dir == '\0') return "/";
  return tidied(account->pw_dir);
}

std::filesystem::path findTemporaryFolder(const std::map<std::string, std::string>& environment) {
  return folderFromVariable(environment, "TMPDIR").value_or("/tmp");
}

std::map<std::string, std::string> readEnvironment() {
  std::map<std::string, std::string> environment;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view text = *entry;
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) continue;
    environment.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return environment;
}

}  // namespace zunto
