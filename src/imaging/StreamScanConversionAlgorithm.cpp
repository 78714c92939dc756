#include "imaging/StreamScanConversionAlgorithm.h"

#include "Core/Log.h"
#include "Stream/ImageStream.h"
#include "model/AlgorithmFrame.h"

namespace Kelvaris::US {

bool StreamScanConversionAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  if (data.size() != 1) return false;
  auto* const stream = dynamic_cast<ImageStream*>(data[0]);
  if (!stream) return false;
  if (algorithm) *algorithm = makeStreamExecutor(*stream, nullptr, kStreamAlgorithmName).release();
  return true;
}

void StreamScanConversionAlgorithm::compute() {
  m_status = Failure;
  // The category of another class, and meant to stay so.
  Log::error("ChannelDataFilterAlgorithm", "No implementation. This algorithm is only intended to instantiate a "
                                           "pre-configured StreamAlgorithmExecutor with createCompatible.");
}

OwningDataList StreamScanConversionAlgorithm::takeOutput() {
  return {};
}

} // namespace Kelvaris::US
