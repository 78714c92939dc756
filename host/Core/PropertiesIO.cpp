#include "Core/PropertiesIO.h"

#include "Core/Log.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Kelvaris::PropertiesIO {
namespace {

constexpr const char* kCategory = "PropertiesIO";

void readInto(const pugi::xml_node& node, Properties& properties, int depth) {
  if (depth > kMaxDepth)
    throw std::runtime_error(fmt::format("The XML nests properties deeper than {} levels", kMaxDepth));
  std::vector<Properties::Param> params;
  for (const pugi::xml_node& child : node.children()) {
    const std::string_view name = child.name();
    if (child.type() != pugi::node_element) continue;
    if (name != "param" && name != "properties")
      throw std::runtime_error(fmt::format("Unknown element <{}> where <param> or <properties> is expected", name));
    const pugi::xml_attribute key = child.attribute("key");
    if (!key) throw std::runtime_error(fmt::format("A <{}> has no attribute \"key\"", name));
    if (name == "param")
      params.emplace_back(key.value(), child.text().get());
    else
      readInto(child, properties.addSubProperties(key.value()), depth + 1);
  }
  properties.setParams(std::move(params));
}

Properties propertiesOf(const pugi::xml_node& node) {
  Properties properties;
  readInto(node, properties, 0);
  return properties;
}

/// What `read` returns; nothing, and its message in the log, if it throws std::runtime_error.
template <typename F> std::optional<Properties> logged(F&& read) {
  try {
    return read();
  } catch (const std::runtime_error& error) {
    Log::error(kCategory, "{}", error.what());
    return std::nullopt;
  }
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
  return logged([&] { return propertiesOf(node); });
}

std::string toXml(const Properties& properties) {
  pugi::xml_document document;
  write(properties, document.append_child("properties"));
  std::ostringstream stream;
  document.save(stream, "  ", pugi::format_default | pugi::format_no_declaration);
  return stream.str();
}

std::optional<Properties> fromXml(std::string_view xml) {
  return logged([&] { return parseXml(xml); });
}

Properties parseXml(std::string_view xml) {
  pugi::xml_document document;
  const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size(), parseFlags());
  if (!result) throw std::runtime_error(fmt::format("Broken XML at byte {}: {}", result.offset, result.description()));
  const pugi::xml_node root = document.document_element();
  if (std::string_view(root.name()) != "properties")
    throw std::runtime_error(fmt::format("The XML's outermost element is <{}>, expected <properties>", root.name()));
  return propertiesOf(root);
}

} // namespace Kelvaris::PropertiesIO
