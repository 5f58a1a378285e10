// The desktop's notice that a program is being started: on X11 a busy pointer, until the program ends it.
// Plain function; main thread only.
#pragma once

#include <string>

namespace zunto {

/// Ends the notice that the desktop has given this name. Qt does so for the start of this process; this is
/// for a start that was handed to it. Does nothing where the name is empty or the display is not X11's.
void endStartupNotice(const std::string& name);

}  // namespace zunto
