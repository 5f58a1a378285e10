// Runs a task of the code under test and keeps how it ended.
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "async/error.h"
#include "async/executor.h"
#include "async/task.h"

namespace zunto::testing {

/// How a task ended; neither has a value while it runs.
template <class T>
struct TaskResult {
  std::optional<T> value;
  std::exception_ptr failure;

  [[nodiscard]] bool isPending() const { return !value && !failure; }

  /// The failure as an E; none when there is none or it is of another type.
  template <class E>
  [[nodiscard]] std::optional<E> failureAs() const {
    if (!failure) return std::nullopt;
    try {
      std::rethrow_exception(failure);
    } catch (const E& error) {
      return error;
    } catch (...) {
      return std::nullopt;
    }
  }

  /// The failure's sentence for the user; empty when there is none.
  [[nodiscard]] std::string message() const {
    const std::optional<Error> error = failureAs<Error>();
    return error ? error->message() : std::string();
  }
};

template <class T>
Task<void> keepResult(Task<T> task, std::shared_ptr<TaskResult<T>> result) {
  try {
    result->value.emplace(co_await task);
  } catch (...) {
    result->failure = std::current_exception();
  }
}

template <class T>
struct RunningTask {
  TaskHandle handle;
  std::shared_ptr<TaskResult<T>> result;
};

template <class T>
[[nodiscard]] RunningTask<T> start(Executor& executor, Task<T> task) {
  auto result = std::make_shared<TaskResult<T>>();
  return {executor.spawn(keepResult(std::move(task), result)), result};
}

}  // namespace zunto::testing
