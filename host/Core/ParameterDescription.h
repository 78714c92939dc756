#pragma once

#include <string>
#include <vector>

namespace Kelvaris {

class ParameterBase;

/// Words about a parameter, for forms and command lines, made from its name, its type and its attributes.
namespace ParameterDescription {

/// The display texts of an enum in the order of its values: what stands between the commas of the attribute "values".
std::vector<std::string> displayTexts(const ParameterBase& parameter);
/// The name in words: "Dynamic range" for "dynamicRange", "Use SIMUS" for "useSIMUS".
std::string label(const ParameterBase& parameter);
/// What it takes, with the range from the attributes "min" and "max": "a number, 5 to 100", "one of 0 "Lowpass", 1
/// "Highpass"".
std::string expected(const ParameterBase& parameter);
/// A text of the parameter as a user reads it: an enum's display text, a number with its unit; an empty text as
/// `empty`.
std::string shown(const ParameterBase& parameter, const std::string& text, const std::string& empty);

} // namespace ParameterDescription
} // namespace Kelvaris
