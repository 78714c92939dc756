#pragma once

#include "Core/Properties.h"

#include <filesystem>
#include <string>

namespace Kelvaris::CommandLine {

/// Reads the XML of one <properties>. Throws std::runtime_error with the file's name and `what` it should hold ("an
/// acquisition").
Properties readPropertiesFile(const std::filesystem::path& path, const std::string& what);

/// The file appears when it is complete. Throws std::runtime_error.
void writePropertiesFile(const std::filesystem::path& path, const Properties& properties);

} // namespace Kelvaris::CommandLine
