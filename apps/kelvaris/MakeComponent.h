#pragma once

#include "Core/Properties.h"
#include "Lib/DataComponent.h"

#include <memory>
#include <string>

namespace Kelvaris::CommandLine {

/// A component of that id, made by the plugin that knows it. Throws std::runtime_error if there is none, or if it takes
/// nothing of the properties.
std::unique_ptr<DataComponentBase> makeComponent(const std::string& id, const Properties& properties);

} // namespace Kelvaris::CommandLine
