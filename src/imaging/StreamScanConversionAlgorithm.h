#pragma once

#include "Lib/Algorithm.h"
#include "Lib/Data.h"

namespace Kelvaris::US {

/// The menu entry that scan-converts a live stream. It computes nothing itself: createCompatible() hands out a
/// StreamAlgorithmExecutor, which looks for an algorithm under the name of the entry, kStreamAlgorithmName, once images
/// arrive. This class takes no images; the scan conversion for image sets has that name as an alias
/// (USImgFormationAlgorithmFactory).
class StreamScanConversionAlgorithm : public Algorithm {
public:
  static constexpr const char* kStreamAlgorithmName = "Advanced Scan-conversion";

  /// For one image stream of any kind. With `algorithm` not null, the caller gets a new executor for all images of an
  /// emission, which listens from compute() on; false leaves it alone.
  static bool createCompatible(const DataList& data, Algorithm** algorithm);

  /// Logs an error; status Failure.
  void compute() override;
  /// Empty.
  OwningDataList takeOutput() override;
};

} // namespace Kelvaris::US
