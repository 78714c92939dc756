#pragma once

#include "Lib/ImageDescriptor.h"
#include "Lib/Mask.h"

#include <memory>
#include <string>
#include <string_view>

namespace Kelvaris::MaskIO {

/// A mask as XML: <mask id="FanMask">...its configuration...</mask>
std::string toXml(const Mask& mask);

/// The mask is made by the MaskFactory from its id, its configuration and the descriptor of its image. On broken XML,
/// an unknown id or a configuration that makes no mask: an error is logged and null returned.
std::shared_ptr<const Mask> fromXml(std::string_view xml, const ImageDescriptor& image);

} // namespace Kelvaris::MaskIO
