#pragma once

#include "Lib/PointCloud.h"
#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"

#include <pybind11/pybind11.h>

#include <memory>

namespace Kelvaris::Python {

/// The Python object of the module `kelvaris` that shares `data`, None for null. Classes of plugins appear as the class
/// of the host that they derive from. The module must be imported and the GIL held.
inline pybind11::object toPython(const std::shared_ptr<Data>& data) {
  if (auto images = std::dynamic_pointer_cast<SharedImageSet>(data)) return pybind11::cast(std::move(images));
  if (auto points = std::dynamic_pointer_cast<PointCloud>(data)) return pybind11::cast(std::move(points));
  if (auto stream = std::dynamic_pointer_cast<ImageStream>(data)) return pybind11::cast(std::move(stream));
  if (auto stream = std::dynamic_pointer_cast<Stream>(data)) return pybind11::cast(std::move(stream));
  return pybind11::cast(data);
}

} // namespace Kelvaris::Python
