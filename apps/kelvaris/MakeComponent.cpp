#include "kelvaris/MakeComponent.h"

#include "Lib/DataComponentFactory.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris::CommandLine {

std::unique_ptr<DataComponentBase> makeComponent(const std::string& id, const Properties& properties) {
  auto made = DataComponentFactory::get().create(id);
  if (!made) throw std::runtime_error(fmt::format("No plugin provides the component \"{}\"", id));
  made->configure(&properties);
  Properties taken;
  made->configuration(&taken);
  if (taken.empty())
    throw std::runtime_error(fmt::format("The component \"{}\" took nothing of what it was given", id));
  return made;
}

} // namespace Kelvaris::CommandLine
