#import "platform/appkit/text.h"

namespace zunto {

Retained<NSString> toNSString(std::string_view utf8) {
  auto string = Retained<NSString>::adopt([[NSString alloc] initWithBytes:utf8.data()
                                                                   length:utf8.size()
                                                                 encoding:NSUTF8StringEncoding]);
  if (string) return string;
  return Retained<NSString>::adopt([[NSString alloc] initWithBytes:utf8.data()
                                                            length:utf8.size()
                                                          encoding:NSISOLatin1StringEncoding]);
}

std::string toUtf8(NSString* _Nullable string) {
  NSData* data = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
  if (data == nil || [data length] == 0) return {};
  return {static_cast<const char*>([data bytes]), [data length]};
}

}  // namespace zunto
