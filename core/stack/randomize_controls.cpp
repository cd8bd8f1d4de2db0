#include "core/stack/randomize_controls.h"

#include "core/imaging/platform.h"
#include "core/stack/analytics.h"

namespace zorvex {

RolledControls randomizeControls() {
  AnalyticsHelper::logButton("randomParams");
  const uint64_t high = arc4random();
  const uint64_t seed = high << 32 | arc4random();
  return RolledControls{seed, rollControls(seed)};
}

}  // namespace zorvex
