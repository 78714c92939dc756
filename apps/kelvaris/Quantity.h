#pragma once

#include <string>

/// Numbers with units on the command line: "100us", "0.1 ms". All functions throw std::invalid_argument that quotes the
/// text and names the units.
namespace Kelvaris::CommandLine {

/// In s, ms, us or ns; 0 needs no unit. In seconds.
double parseTime(const std::string& text);
/// In Hz (which may be left out), kHz or MHz. In Hz.
double parseFrequency(const std::string& text);
/// A place in mm (which may be left out). In mm.
double parseLength(const std::string& text);

} // namespace Kelvaris::CommandLine
