#pragma once

#include "Lib/Data.h"

#include <string>

namespace Kelvaris::Python {

/// "unknown" or "ultrasound".
std::string modalityName(Data::Modality modality);
/// Throws ValueError, naming what there is.
Data::Modality modalityFromName(const std::string& name);
/// "image", "volume", "images", "volumes", "image stream", "volume stream", "other stream" or "unknown".
std::string kindName(Data::Kind kind);

} // namespace Kelvaris::Python
