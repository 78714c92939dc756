#pragma once

#include "CUDA/Device.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string_view>

namespace Kelvaris::Tests {

/// For tests that are declared with DEVICE in cmake: they run on the executor that KELVARIS_DEVICE names, and are
/// skipped where it asks for CUDA and there is none.
template <typename Base = ::testing::Test> class DeviceTest : public Base {
protected:
  void SetUp() override {
    const char* wish = std::getenv("KELVARIS_DEVICE");
    if (wish && std::string_view(wish) == "cuda")
      if (const std::string problem = CUDA::Device::cudaProblem(); !problem.empty())
        GTEST_SKIP() << "no CUDA device to run on: " << problem;
  }
};

} // namespace Kelvaris::Tests
