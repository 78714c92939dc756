#pragma once

#include "Lib/DataComponent.h"
#include "model/BeamformingRois.h"
#include "model/FrameParameters.h"
#include "model/PulseEchoEvent.h"
#include "model/Transducer.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kelvaris::US {

class FrameGeometryMetadata;
class UltrasoundMetadata;

/// How one ultrasound frame is acquired: a transducer and pulse-echo events in firing order, and what images of it
/// need: a region of interest per event, the frame's geometry, the metadata record. Either all of that is made from
/// FrameParameters, or the events are given as they are.
///
/// From parameters, with O the origin of an event on the array:
///
///     focused          beams from points at equal arc length along the array, one region line each
///
///       O    O    O    O    O               all at the steering angle from the y axis; on a convex array from the
///       |    |    |    |    |               array's normal, so that they fan out
///       F    F    F    F    F   focalDepth along the beam
///
///     plane waves      numberApertures apertures, evenly along the array, O halfway between their outer elements; at
///     diverging waves  each of them numberEventsPerAperture angles from -range/2 to +range/2. The angle runs fastest.
///
///       |---O---|                           A plane wave's region is the parallelogram below the elements that both
///          |---O---|                        send and receive, a diverging one's the trapezium away from its virtual
///             |---O---|                     source (virtualSourceDistance behind O); both reach down to the height
///       =================  array            of the frame.
///
/// All events of a frame end at the same time. Not safe to change from several threads; may be read from several.
class FrameAcquisition : public DataComponent<FrameAcquisition> {
public:
  /// No events, no regions, empty geometry and metadata.
  FrameAcquisition();
  /// Takes over the events; no parameters, no regions, empty geometry and metadata.
  FrameAcquisition(Transducer transducer, std::vector<PulseEchoEvent> events);
  /// Makes everything from the parameters. Throws std::invalid_argument like checkFrameParameters, and
  /// std::bad_optional_access if there are events with an aperture below 1. An unknown event type is logged and makes
  /// no events.
  FrameAcquisition(Transducer transducer, FrameParameters parameters);
  FrameAcquisition(const FrameAcquisition& other);
  FrameAcquisition& operator=(const FrameAcquisition& other);
  ~FrameAcquisition() override;

  std::vector<PulseEchoEvent>& events() { return m_events; }
  const std::vector<PulseEchoEvent>& events() const { return m_events; }
  Transducer& transducer() { return m_transducer; }
  const Transducer& transducer() const { return m_transducer; }
  /// Present if the events were made from parameters; they describe the events only as long as nothing was changed.
  const std::optional<FrameParameters>& frameParameters() const { return m_frameParameters; }
  /// One region per event; null if the events were given and no regions were stored.
  BeamformingRois* rois() { return m_rois.get(); }
  const BeamformingRois* rois() const { return m_rois.get(); }
  /// Holds no geometry if the events were given and none was stored.
  const FrameGeometryMetadata& frameGeometry() const { return *m_frameGeometry; }
  const UltrasoundMetadata& ultrasoundMetadata() const { return *m_ultrasoundMetadata; }

  /// Sets the sampling frequency (Hz) of the parameters and of all events; nothing is recomputed.
  void setReceiveSamplingFrequency(double frequency);

  std::string id() const override { return "FrameAcquisition"; }
  /// Reads the transducer and then either the parameters, from which everything is made anew, or, where those are
  /// incomplete, the list of events; last the stored regions, geometry and metadata, which replace what was made.
  /// A plane or diverging wave without "numberApertures" has one aperture and "numberEvents" events. Bad input is
  /// logged and leaves the object unchanged, but for the transducer where there are neither parameters nor events.
  /// Throws what the constructor from parameters throws for apertures below 1, and what BeamformingRois throws.
  void configure(const Properties* properties) override;
  /// Writes the parameters if they reproduce this object, else all events; regions, geometry and metadata either way.
  void configuration(Properties* properties) const override;

  /// Equal transducers, events, regions and metadata, and geometries equal within 0.001. The parameters don't count.
  bool operator==(const FrameAcquisition& other) const;
  bool operator!=(const FrameAcquisition& other) const { return !(*this == other); }

private:
  void calculateFromFrameParameters();
  void calculateFocused();
  void calculatePlaneWave();
  void calculateDivergingWave();
  std::vector<Eigen::Vector3d> apertureOrigins(int numberApertures) const;
  void fillEventHighlevelParameters(PulseEchoEvent& event, const FrameParameters& parameters) const;

  void calculateFocusedMetadata();
  void calculatePlaneWaveMetadata();
  void calculateDivergingWaveMetadata();
  void fillUltrasoundMetadata(int numColumns, double focalDepth);

  void fillEndTimeFocused();
  void fillEndTimeUltrafast();

  bool readEvents(const std::vector<const Properties*>& stored);
  bool isReproducedByParameters() const;

  Transducer m_transducer;
  std::optional<FrameParameters> m_frameParameters;
  std::vector<PulseEchoEvent> m_events;
  std::unique_ptr<BeamformingRois> m_rois;
  std::unique_ptr<FrameGeometryMetadata> m_frameGeometry;
  std::unique_ptr<UltrasoundMetadata> m_ultrasoundMetadata;
};

} // namespace Kelvaris::US
