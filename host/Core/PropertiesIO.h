#pragma once

#include "Core/Properties.h"

#include <optional>
#include <string>
#include <string_view>

namespace pugi {
class xml_node;
}

/// Properties as plain XML that people and scripts can write:
///
///     <properties>
///       <param key="pitch">0.3</param>
///       <properties key="transducer">...</properties>
///     </properties>
namespace Kelvaris::PropertiesIO {

/// Deepest nesting of sub-properties that a reader accepts.
inline constexpr int kMaxDepth = 64;

/// pugixml's flags for documents that hold properties: texts come back as they were written, blanks and line ends
/// included.
unsigned int parseFlags();

std::string toXml(const Properties& properties);

/// Reads the XML of one <properties>. On broken XML, foreign elements, a missing key or too deep nesting: an error is
/// logged and nothing is returned.
std::optional<Properties> fromXml(std::string_view xml);
/// The same without a log: std::runtime_error says what is wrong.
Properties parseXml(std::string_view xml);

/// Writes the params and sub-properties as children of `node`.
void write(const Properties& properties, pugi::xml_node node);
/// Reads the children of `node`. On foreign elements, a missing key or too deep nesting: an error is logged and nothing
/// is returned.
std::optional<Properties> read(const pugi::xml_node& node);

} // namespace Kelvaris::PropertiesIO
