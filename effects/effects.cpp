#include "effects/effects.h"

#include "effects/real_effects.h"

namespace {

// Both are there before any code of the program runs, since a signal handler may ask at any time.
RealEffects realEffects;
Effects* inForce = &realEffects;

}  // namespace

Effects& effects() {
  return *inForce;
}

ActingAs::ActingAs(Effects& other) : before_(inForce) {
  inForce = &other;
}

ActingAs::~ActingAs() {
  inForce = before_;
}
