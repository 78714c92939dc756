#include "Core/Parameter.h"

namespace Kelvaris {

std::string ParameterBase::attribute(const std::string& key) const {
  const auto found = m_attributes.find(key);
  return found == m_attributes.end() ? std::string() : found->second;
}

std::string ParameterBase::expected() const {
  switch (type()) {
  case ParameterType::Bool:
    return "true or false";
  case ParameterType::Int:
    return "a whole number";
  case ParameterType::Double:
    return "a number";
  case ParameterType::OptionalDouble:
    return "a number, or nothing";
  case ParameterType::Vector2i:
    return "two whole numbers with a blank between";
  case ParameterType::Enum:
    return "the index of one of: " + attribute("values");
  case ParameterType::Text:
    break;
  }
  return "text";
}

} // namespace Kelvaris
