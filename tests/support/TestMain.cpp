#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  Kelvaris::Tests::installUnexpectedLogCheck();
  return RUN_ALL_TESTS();
}
