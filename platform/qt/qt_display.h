// What kind of display the program stands on: some things are done otherwise, or by others, under Wayland.
// Plain functions; main thread only, while a QtApplication lives.
#pragma once

namespace zunto {

enum class QtDisplay {
  x11,       ///< and whatever else lets a program place its windows and find the pointer
  xwayland,  ///< an X server that knows of the pointer only what happens over its own windows
  wayland    ///< the compositor places windows, and lets one come forward only with a token
};

[[nodiscard]] QtDisplay currentDisplay();

}  // namespace zunto
