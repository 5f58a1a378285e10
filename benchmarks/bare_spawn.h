// The floor of running a command: a bare posix_spawn with its output drained.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <initializer_list>
#include <vector>

/// Runs `program` to its end, on the calling thread. Answers its wait status, or -1 where it did not start.
inline int spawnBare(const char* program, std::initializer_list<const char*> options) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  std::vector<char*> arguments{const_cast<char*>(program)};
  for (const char* option : options) arguments.push_back(const_cast<char*>(option));
  arguments.push_back(nullptr);
  pid_t pid = 0;
  const int error = ::posix_spawn(&pid, program, &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  std::array<char, 4096> buffer{};
  while (error == 0 && ::read(ends[0], buffer.data(), buffer.size()) > 0) continue;
  ::close(ends[0]);
  int status = -1;
  if (error == 0) ::waitpid(pid, &status, 0);
  return status;
}
