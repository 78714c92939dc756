#pragma once

#include "Core/Properties.h"
#include "Lib/DataComponent.h"

#include <optional>
#include <string>
#include <string_view>

namespace Kelvaris {

/// A component whose id nobody has registered: it keeps what was stored, so that saving it loses nothing.
class UnknownDataComponent : public DataComponent<UnknownDataComponent> {
public:
  explicit UnknownDataComponent(std::string id) : m_id(std::move(id)) {}

  std::string id() const override { return m_id; }
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;
  bool operator==(const UnknownDataComponent& other) const;

private:
  std::string m_id;
  Properties m_properties;
};

/// Components as XML: <components><component id="Transducer">...its params...</component>...</components>
namespace DataComponentsIO {

std::string toXml(const DataComponentList& components);

/// Each component is made by the DataComponentFactory from its id and configured with its params. On broken XML,
/// foreign elements, a missing id or a component that throws: an error is logged and nothing is returned.
std::optional<DataComponentList> fromXml(std::string_view xml);

} // namespace DataComponentsIO
} // namespace Kelvaris
