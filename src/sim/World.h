// sim::World: a simulated environment with the simulated platform installed, the usual
// starting point of a test or a scripted run. Members are public: drive `env`, script
// `platform`.
#pragma once

#include "sim/Environment.h"
#include "sim/Platform.h"

namespace sim {

struct World {
  explicit World(double startSecondsSince1970 = Environment::kDefaultStart) : env(startSecondsSince1970) {}
  Environment env;
  Platform platform;
};

}  // namespace sim
