#pragma once

#include "US/FrameGeometry.h"

#include <memory>
#include <string>

namespace Kelvaris::US {

/// A new geometry of the kind with that class name ("FrameGeometryLinear", "FrameGeometrySector",
/// "FrameGeometryConvex", "FrameGeometryConvexSteered"), or null for any other text.
std::unique_ptr<FrameGeometry> createFrameGeometry(const std::string& type);

/// The geometry stored in `properties`, or null with an error in the log if they don't hold a complete one.
std::unique_ptr<FrameGeometry> readFrameGeometry(const Properties& properties);

} // namespace Kelvaris::US
