#include "Core/Configurable.h"

#include "Core/Parameter.h"

namespace Kelvaris {

void Configurable::configure(const Properties* properties) {
  if (!properties) return;
  for (ParameterBase* parameter : m_parameters)
    parameter->read(*properties);
}

void Configurable::configuration(Properties* properties) const {
  if (!properties) return;
  for (const ParameterBase* parameter : m_parameters)
    parameter->write(*properties);
}

void Configurable::configureDefaults() {
  for (ParameterBase* parameter : m_parameters)
    parameter->reset();
}

void Configurable::registerParameter(ParameterBase* parameter, std::mutex* guard) {
  parameter->setGuard(guard);
  m_parameters.push_back(parameter);
}

ParameterBase* Configurable::parameter(const char* name) const {
  for (ParameterBase* parameter : m_parameters)
    if (parameter->name() == name) return parameter;
  return nullptr;
}

} // namespace Kelvaris
