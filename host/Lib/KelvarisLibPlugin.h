#pragma once

#include "Lib/AlgorithmControllerFactory.h"
#include "Lib/AlgorithmFactory.h"
#include "Lib/PluginBase.h"

#include <memory>

namespace Kelvaris {

class ApplicationController;

/// Types of annotations; there are none yet.
class DataAnnotationFactory {
public:
  virtual ~DataAnnotationFactory() = default;
};

/// A plugin that contributes factories. They go away with it, and so do the data component types that it registers
/// under a DataComponentFactory::OwnerScope of itself.
class KelvarisLibPlugin : public PluginBase {
public:
  using PluginBase::PluginBase;
  ~KelvarisLibPlugin() override;

  virtual void setApplicationController(ApplicationController&) {}

protected:
  /// Hands the factories to the host. Each may be null.
  void registerFactories(std::unique_ptr<AlgorithmFactory> algorithms,
                         std::unique_ptr<AlgorithmControllerFactory> controllers,
                         std::unique_ptr<DataAnnotationFactory> annotations);
};

} // namespace Kelvaris
