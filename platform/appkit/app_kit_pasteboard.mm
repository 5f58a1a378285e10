#import "platform/appkit/app_kit_pasteboard.h"

#import <Cocoa/Cocoa.h>

#import "platform/appkit/text.h"

namespace zunto {

std::optional<std::string> AppKitPasteboard::plainText() const {
  NSString* text = [[NSPasteboard generalPasteboard] stringForType:NSPasteboardTypeString];
  if (text == nil) return std::nullopt;
  return toUtf8(text);
}

}  // namespace zunto
