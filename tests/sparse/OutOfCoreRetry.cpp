// The single out-of-core retry: the core size from PARDISO's memory report, the setting and the
// environment variable it updates, and at most one more attempt.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "core/GlobalState.h"
#include "sparse/internal/OutOfCoreRetry.h"

using vqmath::internal::OutOfCoreRetry;

TEST(OutOfCoreRetry, CoreSizeIsTheLargerNeedInMegabytesPlusOne) {
  EXPECT_EQ(OutOfCoreRetry::CoreSizeMb(1500, 800, 900), 2);  // max(1500, 1700) / 1000 + 1
  EXPECT_EQ(OutOfCoreRetry::CoreSizeMb(2999, 0, 0), 3);
  int iparm[64] = {};
  iparm[14] = 5000;
  iparm[15] = 4000;
  iparm[62] = 2500;
  EXPECT_EQ(OutOfCoreRetry::CoreSizeMb(iparm), 7);
}

TEST(OutOfCoreRetry, RetriesOnceWithTheEnlargedCoreSize) {
  const int saved = vqmath::internal::settings().oocMaxCoreSize;
  int iparm[64] = {};
  iparm[14] = 12345;
  struct Case {
    bool allowed;
    int firstResult;
    int expectedAttempts;
  } cases[] = {{true, -4, 2}, {false, -4, 1}, {true, 0, 1}};
  for (const Case& c : cases) {
    int attempts = 0;
    const int result = OutOfCoreRetry::Run([&]() { return ++attempts == 1 ? c.firstResult : -4; },
                                           [](int r) { return r == -4; },
                                           [&]() -> const int* { return iparm; }, c.allowed);
    EXPECT_EQ(attempts, c.expectedAttempts);
    EXPECT_EQ(result, c.expectedAttempts == 2 ? -4 : c.firstResult);  // never a third attempt
  }
  EXPECT_EQ(vqmath::internal::settings().oocMaxCoreSize, 13);
  EXPECT_EQ(std::string(std::getenv("MKL_PARDISO_OOC_MAX_CORE_SIZE")), "13");
  vqmath::internal::SetOocMaxCoreSize(saved);
}
