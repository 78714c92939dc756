#include "plugin/USImgFormationFactory.h"

#ifdef KELVARIS_HAVE_GUI
#include "Gui/DefaultAlgorithmController.h"
#include "gui/SimulatedChannelDataStreamController.h"
#include "gui/SingleImageStreamAlgorithmExecutorController.h"
#endif
#include "beamforming/BeamformingAlgorithm.h"
#include "imaging/EnvelopeDetectionAlgorithm.h"
#include "imaging/LogCompressionAlgorithm.h"
#include "imaging/StreamScanConversionAlgorithm.h"
#ifdef KELVARIS_HAVE_GL
#include "Stream/CreateStreamIoAlgorithm.h"
#include "imaging/ScanConversionUltrafastImaging.h"
#include "simulation/SimulatedChannelDataStream.h"
#include "streaming/SingleImageStreamAlgorithmExecutor.h"
#endif
#include "processing/ChannelDataFilterAlgorithm.h"
#include "processing/ChannelDataRemappingAlgorithm.h"
#include "processing/IqDemodulationAlgorithm.h"

namespace Kelvaris::US {
#ifdef KELVARIS_HAVE_GUI
namespace {

template <typename... T> bool isOneOf(Algorithm* algorithm) {
  return ((dynamic_cast<T*>(algorithm) != nullptr) || ...);
}

} // namespace
#endif

USImgFormationAlgorithmFactory::USImgFormationAlgorithmFactory() : AlgorithmFactory("USImgFormation") {
#ifdef KELVARIS_HAVE_GL
  registerAlgorithm<CreateStreamIoAlgorithm<SimulatedChannelDataStream, true, true>>(
      "CreateStreamIoSimulatedChannelData", "IO;Streaming;Simulated Ultrasound Channel Data");
#endif
  registerAlgorithm<ChannelDataFilterAlgorithm>("ChannelDataFilter", "Ultrasound;Filter Channel Data");
  registerAlgorithm<ChannelDataRemappingAlgorithm>("ChannelDataRemapping", "Ultrasound;Remap Channel Data");
  registerAlgorithm<EnvelopeDetectionAlgorithm>("EnvelopeDetection", "Ultrasound;Envelope Detection");
  registerAlgorithm<LogCompressionAlgorithm>("LogCompression", "Ultrasound;Log Compression");
  registerAlgorithm<IqDemodulationAlgorithm>("IqDemodulation", "Ultrasound;IQ Demodulation");
  registerAlgorithm<BeamformingAlgorithm>("Beamforming", "Ultrasound;Beamforming");
#ifdef KELVARIS_HAVE_GL
  registerAlgorithm<ScanConversionUltrafastImaging>("ScanConversionUltrafastImaging",
                                                    "Ultrasound;Advanced;Scan-conversion for Ultrafast Imaging",
                                                    Descriptor::Expert);
  // The entry below makes executors that look for this name.
  addAlias("ScanConversionUltrafastImaging", "Advanced Scan-conversion");
#endif
  registerAlgorithm<StreamScanConversionAlgorithm>("StreamScanConversion",
                                                   "Ultrasound;Advanced;Advanced Scan-conversion", Descriptor::Expert);
#ifdef KELVARIS_HAVE_GL
  registerAlgorithm<SingleImageStreamAlgorithmExecutor>("SingleImageStreamAlgorithmExecutor",
                                                        "Ultrasound;Advanced;Execute Stream Algorithm");
#endif
}

USImgFormationControllerFactory::USImgFormationControllerFactory() : AlgorithmControllerFactory("USImgFormation") {}

#ifdef KELVARIS_HAVE_GUI
std::unique_ptr<AlgorithmController> USImgFormationControllerFactory::create(Algorithm* algorithm) const {
  if (auto* const maker = dynamic_cast<SimulatedChannelDataStreamController::StreamMaker*>(algorithm))
    return std::make_unique<SimulatedChannelDataStreamController>(maker);
  if (auto* const executor = dynamic_cast<SingleImageStreamAlgorithmExecutor*>(algorithm))
    return std::make_unique<SingleImageStreamAlgorithmExecutorController>(executor);
  if (!isOneOf<BeamformingAlgorithm, ChannelDataFilterAlgorithm, ChannelDataRemappingAlgorithm,
               EnvelopeDetectionAlgorithm, LogCompressionAlgorithm, IqDemodulationAlgorithm>(algorithm))
    return nullptr;
  auto controller = std::make_unique<DefaultAlgorithmController>(algorithm, "", false, false);
  controller->setConfigureOnChanged(true);
  return controller;
}
#else
std::unique_ptr<AlgorithmController> USImgFormationControllerFactory::create(Algorithm*) const {
  return nullptr;
}
#endif

} // namespace Kelvaris::US
