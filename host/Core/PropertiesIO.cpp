#include "Core/PropertiesIO.h"

#include "Core/Log.h"

#include <pugixml.hpp>

#include <sstream>
#include <utility>
#include <vector>

namespace Kelvaris::PropertiesIO {
namespace {

constexpr const char* kCategory = "PropertiesIO";

bool readInto(const pugi::xml_node& node, Properties& properties, int depth) {
  if (depth > kMaxDepth) {
    Log::error(kCategory, "The XML nests properties deeper than {} levels", kMaxDepth);
    return false;
  }
  std::vector<Properties::Param> params;
  for (const pugi::xml_node& child : node.children()) {
    const std::string_view name = child.name();
    if (child.type() != pugi::node_element) continue;
    if (name != "param" && name != "properties") {
      Log::error(kCategory, "Unknown element <{}> where <param> or <properties> is expected", name);
      return false;
    }
    const pugi::xml_attribute key = child.attribute("key");
    if (!key) {
      Log::error(kCategory, "A <{}> has no attribute \"key\"", name);
      return false;
    }
    if (name == "param")
      params.emplace_back(key.value(), child.text().get());
    else if (!readInto(child, properties.addSubProperties(key.value()), depth + 1))
      return false;
  }
  properties.setParams(std::move(params));
  return true;
}

} // namespace

unsigned int parseFlags() {
  return (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata_single;
}

void write(const Properties& properties, pugi::xml_node node) {
  for (const auto& [key, text] : properties.params()) {
    pugi::xml_node param = node.append_child("param");
    param.append_attribute("key") = key.c_str();
    param.text() = text.c_str();
  }
  for (const auto& [key, child] : properties.children()) {
    pugi::xml_node sub = node.append_child("properties");
    sub.append_attribute("key") = key.c_str();
    write(child, sub);
  }
}

std::optional<Properties> read(const pugi::xml_node& node) {
  Properties properties;
  if (!readInto(node, properties, 0)) return std::nullopt;
  return properties;
}

std::string toXml(const Properties& properties) {
  pugi::xml_document document;
  write(properties, document.append_child("properties"));
  std::ostringstream stream;
  document.save(stream, "  ", pugi::format_default | pugi::format_no_declaration);
  return stream.str();
}

std::optional<Properties> fromXml(std::string_view xml) {
  pugi::xml_document document;
  const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size(), parseFlags());
  if (!result) {
    Log::error(kCategory, "Broken XML at byte {}: {}", result.offset, result.description());
    return std::nullopt;
  }
  const pugi::xml_node root = document.document_element();
  if (std::string_view(root.name()) != "properties") {
    Log::error(kCategory, "The XML's outermost element is <{}>, expected <properties>", root.name());
    return std::nullopt;
  }
  return read(root);
}

} // namespace Kelvaris::PropertiesIO
