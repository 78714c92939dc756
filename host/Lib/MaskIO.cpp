#include "Lib/MaskIO.h"

#include "Core/Log.h"
#include "Core/PropertiesIO.h"
#include "Lib/MaskFactory.h"

#include <pugixml.hpp>

#include <exception>
#include <sstream>

namespace Kelvaris::MaskIO {
namespace {

constexpr const char* kCategory = "MaskIO";

} // namespace

std::string toXml(const Mask& mask) {
  pugi::xml_document document;
  pugi::xml_node node = document.append_child("mask");
  node.append_attribute("id") = mask.id().c_str();
  PropertiesIO::write(mask.configuration(), node);
  std::ostringstream stream;
  document.save(stream, "  ", pugi::format_default | pugi::format_no_declaration);
  return stream.str();
}

std::shared_ptr<const Mask> fromXml(std::string_view xml, const ImageDescriptor& image) {
  pugi::xml_document document;
  const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size(), PropertiesIO::parseFlags());
  if (!result) {
    Log::error(kCategory, "Broken XML at byte {}: {}", result.offset, result.description());
    return nullptr;
  }
  const pugi::xml_node root = document.document_element();
  if (std::string_view(root.name()) != "mask") {
    Log::error(kCategory, "The XML's outermost element is <{}>, expected <mask>", root.name());
    return nullptr;
  }
  const std::string id = root.attribute("id").value();
  const MaskFactory::Creator creator = MaskFactory::get().creator(id);
  if (!creator) {
    Log::error(kCategory, "There is no kind of mask \"{}\"", id);
    return nullptr;
  }
  const std::optional<Properties> properties = PropertiesIO::read(root);
  if (!properties) return nullptr;
  try {
    if (std::shared_ptr<const Mask> mask = creator(*properties, image)) return mask;
    Log::error(kCategory, "The {} can't be made from what is stored of it", id);
  } catch (const std::exception& exception) {
    Log::error(kCategory, "The {} can't be made from what is stored of it: {}", id, exception.what());
  }
  return nullptr;
}

} // namespace Kelvaris::MaskIO
