#pragma once

#include "Core/Parameter.h"
#include "Core/Properties.h"

#include <pybind11/pybind11.h>

#include <string>

namespace Kelvaris::Python {

namespace py = pybind11;

/// Properties as a dictionary: a parameter under its key, sub-properties as a list of dictionaries under their name.
/// A text becomes a bool, an int, a float, or a list of numbers (or of lists of numbers) where the host would write
/// that value as this very text, so that reading and writing back changes nothing; other texts stay texts. Throws
/// ValueError where a parameter and sub-properties share a name.
py::dict dictOf(const Properties& properties);

/// The reverse. Sub-properties may be a dictionary or a list or tuple of them, numbers those of NumPy, lists arrays;
/// None is the empty text. Throws TypeError with the key for anything else.
Properties propertiesOf(const py::dict& dictionary);

/// The value that a parameter has, from its text: an enum is its display text.
py::object valueOf(const ParameterBase& parameter, const std::string& text);
/// The text that sets the parameter. Throws TypeError and ValueError that say what the parameter of `owner` takes.
std::string textFor(const ParameterBase& parameter, const py::object& value, const std::string& owner);

} // namespace Kelvaris::Python
