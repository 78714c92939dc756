#include "Lib/DataComponentsIO.h"

#include "Core/Log.h"
#include "Core/PropertiesIO.h"
#include "Lib/DataComponentFactory.h"

#include <pugixml.hpp>

#include <exception>
#include <sstream>

namespace Kelvaris {

void UnknownDataComponent::configure(const Properties* properties) {
  if (properties) m_properties = *properties;
}

void UnknownDataComponent::configuration(Properties* properties) const {
  if (properties) *properties = m_properties;
}

bool UnknownDataComponent::operator==(const UnknownDataComponent& other) const {
  return m_id == other.m_id && m_properties == other.m_properties;
}

namespace DataComponentsIO {
namespace {

constexpr const char* kCategory = "DataComponentsIO";

std::unique_ptr<DataComponentBase> create(const std::string& id) {
  if (auto component = DataComponentFactory::get().create(id)) return component;
  return std::make_unique<UnknownDataComponent>(id);
}

} // namespace

std::string toXml(const DataComponentList& components) {
  pugi::xml_document document;
  pugi::xml_node root = document.append_child("components");
  for (const auto& component : components) {
    pugi::xml_node node = root.append_child("component");
    node.append_attribute("id") = component->id().c_str();
    Properties properties;
    component->configuration(&properties);
    PropertiesIO::write(properties, node);
  }
  std::ostringstream stream;
  document.save(stream, "  ", pugi::format_default | pugi::format_no_declaration);
  return stream.str();
}

std::optional<DataComponentList> fromXml(std::string_view xml) {
  pugi::xml_document document;
  const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size(), PropertiesIO::parseFlags());
  if (!result) {
    Log::error(kCategory, "Broken XML at byte {}: {}", result.offset, result.description());
    return std::nullopt;
  }
  const pugi::xml_node root = document.document_element();
  if (std::string_view(root.name()) != "components") {
    Log::error(kCategory, "The XML's outermost element is <{}>, expected <components>", root.name());
    return std::nullopt;
  }
  DataComponentList components;
  for (const pugi::xml_node& node : root.children()) {
    if (node.type() != pugi::node_element) continue;
    if (std::string_view(node.name()) != "component") {
      Log::error(kCategory, "Unknown element <{}> where <component> is expected", node.name());
      return std::nullopt;
    }
    const pugi::xml_attribute id = node.attribute("id");
    if (!id || !*id.value()) {
      Log::error(kCategory, "A <component> has no attribute \"id\"");
      return std::nullopt;
    }
    const std::optional<Properties> properties = PropertiesIO::read(node);
    if (!properties) return std::nullopt;
    std::unique_ptr<DataComponentBase> component = create(id.value());
    try {
      component->configure(&*properties);
    } catch (const std::exception& exception) {
      Log::error(kCategory, "The component {} can't be read: {}", id.value(), exception.what());
      return std::nullopt;
    }
    components.add(std::move(component));
  }
  return components;
}

} // namespace DataComponentsIO
} // namespace Kelvaris
