// What must hold after every event, whatever has happened before: rules that need no model of the flows, only
// the program's fields and controls and what the world has seen.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include "app/helper_delegate.h"
#include "world.h"

namespace zunto::simulation {

class Invariants {
 public:
  /// The rule that is broken now; none when all hold. Forgets what the world has noted for this event.
  [[nodiscard]] std::optional<std::string> broken(World& world, const HelperDelegate& delegate);

  /// What is left of a program that has ended; none when nothing is.
  [[nodiscard]] static std::optional<std::string> leftBehind(const World& world);

 private:
  void require(bool holds, const char* rule) {
    if (!holds && broken_ == nullptr) broken_ = rule;
  }
  void checkStart(const World& world, const SupervisorFields& own);
  void checkChildren(const World& world, const SupervisorFields& own);
  void checkDisplay(const World& world, const SupervisorFields& own);
  void checkRequests(const World& world, const ImportFields& fields);
  void checkJobs(const World& world, const ImportFields& fields, const ImportForm& form);
  void checkForm(const ImportFields& fields, const ImportForm& form);

  const char* broken_ = nullptr;
  // As it stood after the event before this one.
  std::size_t children_ = 0;
  std::optional<std::size_t> held_;  ///< the child, by its place in the world
  bool heldRuns_ = false;
  bool endIsKnown_ = false;  ///< an end notice has come whose turn may still be queued
  std::size_t status_ = 0;
  std::optional<std::filesystem::path> saved_;
  std::size_t saves_ = 0;
  // Of this event.
  bool hasLaunched_ = false;
  bool hasLetGo_ = false;
};

}  // namespace zunto::simulation
