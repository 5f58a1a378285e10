// A strong reference to an Objective-C object that means the same with and without automatic reference
// counting, also where the compiler knows nothing of C++ members and captures.
//
// Owner: a value of whoever holds the object. Thread: as the object allows.
#pragma once

#import <Foundation/Foundation.h>

#include <utility>

namespace zunto {

namespace detail {

#if __has_feature(objc_arc)
inline void retainByHand(id) noexcept {}
inline void releaseByHand(id) noexcept {}
#else
inline void retainByHand(id object) noexcept { [object retain]; }
inline void releaseByHand(id object) noexcept { [object release]; }
#endif

}  // namespace detail

template <class T>
class Retained {
 public:
  Retained() = default;

  /// Shares an object that somebody else owns, such as one that a factory method answered.
  explicit Retained(T* object) noexcept : object_(object) { detail::retainByHand(object_); }

  /// Takes over an object that the caller owns: what `alloc`, `new` and `copy` answer.
  [[nodiscard]] static Retained adopt(T* owned) noexcept { return Retained(owned, Adopted()); }

  Retained(const Retained& other) noexcept : Retained(other.object_) {}
  Retained(Retained&& other) noexcept : object_(std::exchange(other.object_, nil)) {}
  Retained& operator=(Retained other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Retained() { detail::releaseByHand(object_); }

  [[nodiscard]] T* get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nil; }

 private:
  struct Adopted {};
  Retained(T* owned, Adopted) noexcept : object_(owned) {}

  T* object_ = nil;
};

}  // namespace zunto
