#include "module/Components.h"

#include "Lib/DataComponentFactory.h"
#include "module/Log.h"
#include "module/PropertiesDict.h"

#include <fmt/format.h>

#include <utility>

namespace Kelvaris::Python {

py::dict dictOf(const DataComponentList& components) {
  py::dict dictionary;
  for (const auto& component : components) {
    Properties properties;
    component->configuration(&properties);
    dictionary[py::str(component->id())] = dictOf(properties);
  }
  return dictionary;
}

void setComponent(DataComponentList& components, const std::string& id, const py::dict& dictionary) {
  const Properties properties = propertiesOf(dictionary);
  auto component = DataComponentFactory::get().create(id);
  if (!component)
    throw py::value_error(fmt::format("No loaded library has a component \"{}\"; load_plugins() loads those of the "
                                      "plugins",
                                      id));
  const LoggedReasons reasons;
  component->configure(&properties);
  if (reasons.anyError()) throw py::value_error(fmt::format("No {} can be made of this: {}", id, reasons.text()));
  components.add(std::move(component));
}

void removeComponent(DataComponentList& components, const std::string& id) {
  DataComponentList kept;
  for (const auto& component : components)
    if (component->id() != id) kept.add(component->clone());
  if (kept.size() == components.size()) throw py::key_error(fmt::format("There is no component \"{}\"", id));
  components = std::move(kept);
}

} // namespace Kelvaris::Python
