#pragma once

#include "Core/LongWork.h"

#include <atomic>
#include <string>
#include <vector>

namespace Kelvaris::Tests {

/// Takes the reports of long work of this thread, while it lives.
class LongWorkReports : public LongWork::Handler {
public:
  LongWorkReports() { LongWork::setHandler(this); }
  ~LongWorkReports() override { LongWork::setHandler(nullptr); }

  std::atomic<int> granted = 1000; ///< so many reports may come before it gives up
  std::vector<double> fractions;
  std::string text; ///< the last one
  int ends = 0;

  bool report(const std::string& what, double fraction) override {
    text = what;
    fractions.push_back(fraction);
    return --granted >= 0;
  }
  void end() override { ++ends; }
};

} // namespace Kelvaris::Tests
