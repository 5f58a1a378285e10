// The result of an asynchronous platform operation: its value, or the error that it failed with.
#pragma once

#include <utility>
#include <variant>

#include "platform/system_error.h"

namespace zunto {

template <class T>
using Outcome = std::variant<T, SystemError>;

/// The value of `outcome`; throws its SystemError when it holds one.
template <class T>
[[nodiscard]] T valueOrThrow(Outcome<T>&& outcome) {
  if (const auto* failure = std::get_if<SystemError>(&outcome)) throw *failure;
  return std::get<T>(std::move(outcome));
}

}  // namespace zunto
