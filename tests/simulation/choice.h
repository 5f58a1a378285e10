// What happens next: the one place where a seed becomes steps.
//
// A temper says how a run as a whole goes, so that some get far and others are crossed at every step. Within
// it each step is drawn by weights that follow the state of things: an open request is more likely answered
// than forgotten, and what the user cannot do is not tried.
#pragma once

#include <cstddef>

#include "schedule.h"
#include "stage.h"

namespace zunto::simulation {

struct Temper {
  std::size_t goodAnswers;  ///< of a hundred
  unsigned haste;           ///< how often the loop runs before the next thing happens
  unsigned unrest;          ///< how often the world changes
  std::size_t disturbance;  ///< one in so many steps may cross what is under way
};

[[nodiscard]] Temper drawTemper(Random& random);

[[nodiscard]] Step drawStep(const Stage& stage, const Temper& temper, Random& random);

}  // namespace zunto::simulation
