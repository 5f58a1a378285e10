#import "platform/appkit/app_kit_host_environment.h"

#import <Cocoa/Cocoa.h>

#import "platform/appkit/text.h"

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

std::map<std::string, std::string> AppKitHostEnvironment::environment() const {
  NSDictionary<NSString*, NSString*>* variables = [[NSProcessInfo processInfo] environment];
  std::map<std::string, std::string> environment;
  for (NSString* name in variables) {
    environment.insert_or_assign(toUtf8(name), toUtf8([variables objectForKey:name]));
  }
  return environment;
}

int AppKitHostEnvironment::processIdentifier() const {
  return [[NSProcessInfo processInfo] processIdentifier];
}

}  // namespace zunto
