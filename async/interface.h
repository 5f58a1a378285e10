// The base of every seam: made, destroyed through the base, never copied. Any thread.
#pragma once

namespace zunto {

class Interface {
 public:
  Interface() = default;
  Interface(const Interface&) = delete;
  Interface& operator=(const Interface&) = delete;
  virtual ~Interface() = default;
};

}  // namespace zunto
