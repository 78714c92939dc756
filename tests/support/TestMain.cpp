#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#ifdef __SANITIZE_THREAD__
/// Mesa's drivers are not instrumented, so the thread sanitizer can't see how they order their own work. (The same goes
/// for OpenMP's runtime: run with OMP_NUM_THREADS=1.)
extern "C" const char* __tsan_default_suppressions() {
  return "race:swrast_dri.so\n"
         "race:libgallium\n"
         "race:libEGL_mesa.so\n";
}
#endif

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  Kelvaris::Tests::installUnexpectedLogCheck();
  return RUN_ALL_TESTS();
}
