#import "platform/appkit/app_kit_beeper.h"

#import <Cocoa/Cocoa.h>

namespace zunto {

void AppKitBeeper::beep() { NSBeep(); }

}  // namespace zunto
