// Texts between the logic (UTF-8) and the system's string objects.
//
// Plain functions; any thread.
#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

#include "platform/appkit/retained.h"

namespace zunto {

/// Never empty-handed: bytes that are no UTF-8 are read as Latin-1, so that a file's name or a tool's message
/// is shown in some form.
[[nodiscard]] Retained<NSString> toNSString(std::string_view utf8);

/// What has no place in UTF-8 (half a surrogate pair) is replaced. No object is the empty text.
[[nodiscard]] std::string toUtf8(NSString* _Nullable string);

}  // namespace zunto
