#pragma once

#include <stdexcept>

namespace Kelvaris::Python {

/// kelvaris.AlgorithmError: an algorithm could not do its work; the text has the logged reason.
class AlgorithmError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// kelvaris.Canceled: the progress callback asked for the end.
class Canceled : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace Kelvaris::Python
