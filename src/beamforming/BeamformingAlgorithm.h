#pragma once

#include "Core/Parameter.h"
#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"
#include "gpu/BeamformerType.h"

#include <Eigen/Core>

#include <memory>

namespace Kelvaris::US {

class FrameAcquisition;

/// Delay and sum: one frame of channel data becomes one image in pre-scan form (columns are lines, rows are depth
/// samples).
///
/// Input: channel data of shorts or floats, one component (RF) or two (IQ), with a FrameAcquisition and, where its axes
/// differ from the default, a ChannelDataLayout among the components. A FrameGeometryMetadata or BeamformingRois among
/// them overrides that of the acquisition. Output: pixel type and component count of the input; the width, height and
/// slices are
///
///   acquisition                         width             height            slices
///   focused (its first two events are)  number of events  outputSize y      1
///   other, coherentCompounding          outputSize x      outputSize y      1
///   other                               outputSize x      outputSize y      number of events
///
/// with FrameGeometryMetadata and UltrasoundMetadata among the components, and without the ChannelDataLayout. Pixels
/// that no event covers are masked: NaN, or -32768 in shorts.
///
/// Parameters: fNumber (1.0), receive F-number; coherentCompounding (true), sum all events; outputSize (512 512);
/// outputValueScaling (1.0), factor on the result; beamformerType (0), window of the sum or debug output.
///
/// Keeps, for the next frame: the device data of the acquisition, rebuilt when a frame comes with another; and the
/// sampling positions (two floats a pixel and, with several slices, an event, in main memory and on the device),
/// rebuilt when geometry, regions or output size change.
class BeamformingAlgorithm : public Algorithm, public SequentialImageProcessor, public SignalReceiver {
public:
  using BeamformerType = GPU::BeamformerType;

  /// The input may be null, for processImage() alone; it must outlive compute().
  explicit BeamformingAlgorithm(const SharedImageSet* input);
  ~BeamformingAlgorithm() override;

  /// Volume streams, and ultrasound image sets of channel data with one or two components.
  static bool createCompatible(const DataList& data, Algorithm** algorithm);

  void compute() override;
  OwningDataList takeOutput() override;

  /// May run on several threads at once, and while parameters change: a call works with the values that it began with.
  /// Where the beamformer fails, the image is null but the components are complete.
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& input, const DataComponentList& components) const override;

  Parameter<double> fNumber{"fNumber", 1.0};
  Parameter<bool> coherentCompounding{"coherentCompounding", true};
  Parameter<Eigen::Vector2i> outputSize{"outputSize", Eigen::Vector2i(512, 512)};
  Parameter<double> outputValueScaling{"outputValueScaling", 1.0};
  Parameter<BeamformerType> beamformerType{"beamformerType", BeamformerType::UnweightedDas};

private:
  struct Impl;
  struct Setup;

  void updateCacheFromFrameAcquisition(const FrameAcquisition& acquisition) const;
  Setup setupFor(const FrameAcquisition& acquisition) const;

  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  std::unique_ptr<Impl> m_impl;
};

} // namespace Kelvaris::US
