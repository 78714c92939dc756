#pragma once

#include <pybind11/pybind11.h>

namespace Kelvaris::Python {

/// How scripts that a program of the host runs tell how far they are.
void bindLongWork(pybind11::module_& module);

} // namespace Kelvaris::Python
