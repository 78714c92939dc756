#pragma once

#include <pybind11/pybind11.h>

namespace Kelvaris::Python {

/// Data, SharedImage, SharedImageSet, PointCloud.
void bindImages(pybind11::module_& module);

} // namespace Kelvaris::Python
