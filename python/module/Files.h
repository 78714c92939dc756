#pragma once

#include <pybind11/pybind11.h>

namespace Kelvaris::Python {

/// Plugins, files of images, recordings, acquisitions and pictures.
void bindFiles(pybind11::module_& module);

} // namespace Kelvaris::Python
