#include "plugin/USImgFormationPlugin.h"

#include "Lib/DataComponentFactory.h"
#include "Lib/PluginAutoRegistrationGuard.h"
#include "Lib/PluginInterface.h"
#include "model/BeamformingRois.h"
#include "model/ChannelDataLayout.h"
#include "model/FrameAcquisition.h"
#include "model/PulseEchoEvent.h"
#include "model/Transducer.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "plugin/USImgFormationFactory.h"

#include <utility>

namespace Kelvaris::US {
namespace {

template <typename T> void registerComponent(const std::string& id) {
  DataComponentFactory::get().registerComponent(
      id, []() -> std::unique_ptr<DataComponentBase> { return std::make_unique<T>(); });
}
template <typename T> void registerComponent() {
  registerComponent<T>(T().id());
}

} // namespace

KelvarisUSImgFormationPlugin::KelvarisUSImgFormationPlugin() : KelvarisLibPlugin({KELVARIS_PLUGIN_VERSION}) {}

KelvarisUSImgFormationPlugin::~KelvarisUSImgFormationPlugin() = default;

const char* KelvarisUSImgFormationPlugin::id() {
  return "Kelvaris.USImgFormation";
}

std::string KelvarisUSImgFormationPlugin::author() const {
  return "The Kelvaris developers";
}

std::string KelvarisUSImgFormationPlugin::description() const {
  return "Plugin for the acquisition, processing and representation of low level ultrasound data";
}

std::vector<std::string> KelvarisUSImgFormationPlugin::dependencies() const {
  return {"Kelvaris.US", "Kelvaris.Stream"};
}

int KelvarisUSImgFormationPlugin::init() {
  auto controllers = std::make_unique<USImgFormationControllerFactory>();
  auto algorithms = std::make_unique<USImgFormationAlgorithmFactory>();
  registerFactories(std::move(algorithms), std::move(controllers), nullptr);

  m_repository = std::make_unique<Repository_KelvarisUSImgFormationPlugin>();
  Resource::addRepository(m_repository.get());

  const DataComponentFactory::OwnerScope scope(this);
  registerComponent<ChannelDataLayout>();
  registerComponent<FrameAcquisition>();
  registerComponent<PulseEchoEvent>();
  registerComponent<Transducer>();
  registerComponent<BeamformingRois>();
  // What older files call them.
  registerComponent<FrameAcquisition>("PulseEchoSequence");
  registerComponent<BeamformingRois>("UltrafastBeamformingRois");
  return 0;
}

} // namespace Kelvaris::US

namespace {

const Kelvaris::PluginAutoRegistrationGuard
    g_kelvarisPluginLoaderGuard(&Kelvaris::US::KelvarisUSImgFormationPlugin::id);

} // namespace

Kelvaris::PluginBase* kelvarisCreatePlugin() {
  return std::make_unique<Kelvaris::US::KelvarisUSImgFormationPlugin>().release();
}

const char* kelvarisPluginId() {
  return Kelvaris::US::KelvarisUSImgFormationPlugin::id();
}

const char* const kelvarisPluginDescriptor = KELVARIS_PLUGIN_DESCRIPTOR("");
