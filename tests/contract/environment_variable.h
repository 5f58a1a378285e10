// An environment variable with a value of the test's own, which the test's end takes back.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

namespace zunto::testing {

/// Gives one environment variable another value, or none, for the time of a test.
class EnvironmentVariable {
 public:
  EnvironmentVariable(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* previous = ::getenv(name)) previous_ = previous;
    set(value);
  }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
  ~EnvironmentVariable() { set(previous_); }

 private:
  void set(const std::optional<std::string>& value) const {
    value ? ::setenv(name_, value->c_str(), 1) : ::unsetenv(name_);
  }
  const char* name_;
  std::optional<std::string> previous_;
};

}  // namespace zunto::testing
