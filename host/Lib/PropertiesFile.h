#pragma once

#include "Core/Properties.h"

#include <filesystem>

/// Properties as files of plain XML (PropertiesIO). All errors are std::runtime_error with the file in the message.
namespace Kelvaris::PropertiesFile {

/// Replaces a file that is there once the new one is complete.
void save(const std::filesystem::path& path, const Properties& properties);
Properties load(const std::filesystem::path& path);

} // namespace Kelvaris::PropertiesFile
