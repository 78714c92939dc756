#include "viewer/Step.h"

#include "Core/Parameter.h"
#include "Stream/StreamAlgorithm.h"

#include <algorithm>
#include <utility>

namespace Kelvaris::Viewer {

Step::Step(int id, AlgorithmFactory::Descriptor descriptor, std::unique_ptr<Algorithm> algorithm,
           std::vector<DataItem*> inputs, std::function<void()> changed)
    : m_id(id),
      m_descriptor(std::move(descriptor)),
      m_inputs(std::move(inputs)),
      m_isStream(dynamic_cast<StreamAlgorithm*>(algorithm.get()) != nullptr),
      m_algorithm(std::move(algorithm)) {
  for (ParameterBase* parameter : m_algorithm->parameters())
    m_connections.push_back(parameter->changed.connectBlocking([this, changed] {
      m_hasChanged = true;
      changed();
    }));
}

QString Step::name() const {
  return QString::fromStdString(m_descriptor.displayName());
}

bool Step::takes(const DataItem& item) const {
  return std::find(m_inputs.begin(), m_inputs.end(), &item) != m_inputs.end();
}

} // namespace Kelvaris::Viewer
