// An open file descriptor that closes itself.
//
// Owner: whoever holds it; destroying it closes the descriptor, and a failure of that close is dropped. Any
// thread, one at a time.
#pragma once

#include <unistd.h>

#include <utility>

namespace zunto {

class Descriptor {
 public:
  Descriptor() = default;
  /// Takes over `number`; -1 means none.
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() { close(); }

  /// -1 when there is none.
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] bool isOpen() const { return number_ >= 0; }

  /// Closes it now; answers 0, or -1 with errno set. Nothing when there is none. It is never tried again: the
  /// number is free even when the system reports a failure.
  int close() { return isOpen() ? ::close(std::exchange(number_, -1)) : 0; }

 private:
  int number_ = -1;
};

}  // namespace zunto
