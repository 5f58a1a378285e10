#import "platform/appkit/app_kit_workspace.h"

#import <Cocoa/Cocoa.h>

#import "platform/appkit/text.h"

namespace zunto {

void AppKitWorkspace::openWebAddress(const std::string& url) {
  NSURL* address = [NSURL URLWithString:toNSString(url).get()];
  if (address != nil) [[NSWorkspace sharedWorkspace] openURL:address];
}

void AppKitWorkspace::reveal(const std::filesystem::path& location) {
  NSURL* file = [NSURL fileURLWithPath:toNSString(location.native()).get()];
  [[NSWorkspace sharedWorkspace] activateFileViewerSelectingURLs:@[ file ]];
}

}  // namespace zunto
