#import "platform/appkit/app_kit_host_environment.h"

#import <Cocoa/Cocoa.h>

#import "platform/appkit/text.h"
#include "platform/posix/posix_host_environment.h"

namespace zunto {
namespace {

/// The path of a file address; it has no separator at its end, whatever the address has.
std::filesystem::path pathOf(NSURL* url) { return toUtf8([url path]); }

}  // namespace

std::optional<std::filesystem::path> AppKitHostEnvironment::resourcesFolder() const {
  NSURL* folder = [[NSBundle mainBundle] resourceURL];
  if (folder == nil) return std::nullopt;
  return pathOf([folder absoluteURL]);
}

std::filesystem::path AppKitHostEnvironment::homeFolder() const {
  return pathOf([[NSFileManager defaultManager] homeDirectoryForCurrentUser]);
}

std::filesystem::path AppKitHostEnvironment::temporaryFolder() const {
  return pathOf([[NSFileManager defaultManager] temporaryDirectory]);
}

// The process information answers what the program was launched with, without what its entry has set since.
std::map<std::string, std::string> AppKitHostEnvironment::environment() const { return readEnvironment(); }

int AppKitHostEnvironment::processIdentifier() const {
  return [[NSProcessInfo processInfo] processIdentifier];
}

}  // namespace zunto
