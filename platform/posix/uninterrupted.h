// System calls that a signal may end early, which then have done nothing and are to be made again.
// Any thread.
#pragma once

#include <cerrno>

namespace zunto {

/// What `call` answers, made again as long as it answers -1 because a signal came; errno is the last call's.
template <class Call>
auto uninterrupted(Call call) {
  auto answer = call();
  while (answer == -1 && errno == EINTR) answer = call();
  return answer;
}

}  // namespace zunto
