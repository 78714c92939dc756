#pragma once

#include <pybind11/pybind11.h>

namespace Kelvaris::Python {

/// Algorithm, AlgorithmInfo, Parameter, the errors, and the functions that list and create algorithms.
void bindAlgorithms(pybind11::module_& module);

} // namespace Kelvaris::Python
