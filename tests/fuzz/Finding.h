#pragma once

#include <stdexcept>

namespace Kelvaris::Tests {

/// Ends the run: a parser accepted what it should not have.
class Finding : public std::logic_error {
public:
  using std::logic_error::logic_error;
};

} // namespace Kelvaris::Tests
