#pragma once

#include "Lib/Data.h"

#include <pybind11/pybind11.h>

#include <memory>

namespace Kelvaris::Python {

/// Has the stream, if `data` is one, closed when Python ends, should it live so long.
void closeAtExit(const std::shared_ptr<Data>& data);

/// Stream, Frame, Frames.
void bindStreams(pybind11::module_& module);

} // namespace Kelvaris::Python
