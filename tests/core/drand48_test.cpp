#include <gtest/gtest.h>

#include "core/imaging/drand48.h"

namespace zorvex {
namespace {

TEST(Drand48, KnownValues) {
  srand48(0);
  EXPECT_NEAR(drand48(), 0.170828, 1e-6);
}

}  // namespace
}  // namespace zorvex
