#pragma once

#include "Lib/MemImage.h"
#include "Lib/SampleArray.h"
#include "kelvaris/AcquisitionSummary.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::CommandLine {

/// What an index of a recording counts. The first three are the axes of channel data, by their stored numbers.
enum class RecordingAxis { Channels = 0, FastTime = 1, SlowTime = 2, Frames, Traces };

/// "fastTime,channels,frames". Throws std::invalid_argument for an unknown or repeated name, naming what there is.
std::vector<RecordingAxis> parseLayout(const std::string& text);

/// Transmitting and receiving element of each trace, for recordings that list pairs of elements. A pair that is missing
/// is taken from its reverse: exchanging transmitter and receiver doesn't change an echo.
struct TracePairs {
  std::vector<double> transmit;
  std::vector<double> receive;
  std::optional<int> base; ///< number of the first element; none: told from the numbers
};

struct RecordingOptions {
  /// What the indices of the shape count, in the order in which the file's own tools show them; empty: channels run
  /// fastest, then fast time, then slow time.
  std::vector<RecordingAxis> layout;
  std::optional<TracePairs> pairs; ///< needs the axis Traces
  double offset = 0.0;             ///< subtracted from every sample
  bool subtractTraceMeans = false;
  std::optional<int> pixelType; ///< PixelInt16 or PixelFloat; none: 16 bits if the file's integers and the offset fit
  bool anyLength = false;       ///< take recordings whose length isn't that of the acquisition
};

/// The samples of a file as channel data, one image a frame. Slow time that holds several times the acquisition's
/// events is as many frames.
class Recording {
public:
  /// Throws std::invalid_argument if the shape doesn't fit the layout and the acquisition.
  Recording(std::unique_ptr<SampleArray> samples, const AcquisitionSummary& acquisition, RecordingOptions options);

  /// Frames.
  int size() const { return static_cast<int>(m_frames * m_framesInSlowTime); }
  /// What image width, height and slices carry (0 channels, 1 fast time, 2 slow time): the file's own order, so that
  /// samples stay where they are.
  const std::array<int, 3>& axisSemantics() const { return m_axes; }
  const ImageDescriptor& descriptor() const { return m_descriptor; }
  /// For example "334 samples, 128 channels, 1 event".
  std::string frameText() const;

  /// Reads one frame. Throws std::runtime_error for a sample that is no number or doesn't fit the pixel type, with its
  /// place in the frame.
  std::unique_ptr<MemImage> frame(int index) const;
  /// Mean of all samples, read frame by frame; for `offset`. Pays one pass through the file.
  static double mean(const SampleArray& samples);

private:
  using Layout = std::vector<std::optional<RecordingAxis>>; ///< one a shown index; indices of extent 1 may have none

  std::size_t extent(const Layout& layout, RecordingAxis axis) const;
  Layout layoutFor(const std::vector<RecordingAxis>& names) const;
  std::string misfit(const Layout& layout, const AcquisitionSummary& acquisition) const;
  std::string fittingLayouts(const AcquisitionSummary& acquisition) const;
  void resolvePairs(const AcquisitionSummary& acquisition);
  void describeFrame(const AcquisitionSummary& acquisition);
  template <typename In, typename Out> void convert(const In* samples, Out* pixels) const;

  std::unique_ptr<SampleArray> m_samples;
  RecordingOptions m_options;
  Layout m_layout;
  std::size_t m_frames = 1, m_framesInSlowTime = 1;
  std::array<std::size_t, 3> m_extents = {1, 1, 1}; ///< of a frame: channels, samples, events
  std::array<std::size_t, 3> m_strides = {};        ///< of these in a frame as read; traces for channels
  std::array<int, 3> m_axes = {};
  std::vector<std::size_t> m_traceOf; ///< trace of each (event, channel), channels fastest
  ImageDescriptor m_descriptor;
};

} // namespace Kelvaris::CommandLine
