#pragma once

namespace Kelvaris::US {

class Transducer;

/// The compact description of a frame, from which FrameAcquisition makes its events. Lengths in mm, frequencies in Hz,
/// speed of sound in mm/s, angles in rad, pulse length in cycles. Of the last three groups only that of the event type
/// counts.
struct FrameParameters {
  int eventType = 0;     ///< 0 focused, 1 plane wave, 2 diverging wave (PulseEchoEvent::EventType)
  double endDepth = 0.0; ///< deepest imaged depth
  double pulseFrequency = 0.0;
  double pulseLength = 0.0;
  double speedOfSound = 0.0;
  int maxTransmitAperture = 0; ///< elements that fire in an event
  int maxReceiveAperture = 0;  ///< elements that record in an event
  double receiveSamplingFrequency = 0.0;

  struct Focused {
    double focalDepth = 0.0;    ///< from the beam's origin to its focus
    double steeringAngle = 0.0; ///< of the beam from the y axis
    int numberFocusedBeamsTotal = 0;
  } focused;

  struct PlaneWave {
    double planeAngleRange = 0.0; ///< full range of the angles of propagation
    int numberApertures = 0;
    int numberEventsPerAperture = 0;
  } planeWave;

  struct DivergingWave {
    double virtualSourceDistance = 0.0; ///< of the virtual source behind the aperture's centre
    double steeringAngleRange = 0.0;    ///< full range of the angles
    int numberApertures = 0;
    int numberEventsPerAperture = 0;
  } divergingWave;
};

/// Limits of a frame made from parameters: what takes memory or time by it stays within reason.
struct FrameLimits {
  static constexpr int maxEvents = 65536;
  static constexpr int maxEventElements = 1 << 24; ///< events times elements of the array
  static constexpr int maxRows = 65536;            ///< three per wavelength over the depth
};

/// Throws std::invalid_argument, with the value and what would be right, if no frame of the array can be made of the
/// parameters: numbers that aren't finite, negative counts or depths, no frequency or speed of sound, an array without
/// elements, plane or diverging waves from apertures larger than the array, sizes beyond FrameLimits. Apertures
/// below 1 and unknown event types pass.
void checkFrameParameters(const Transducer& transducer, const FrameParameters& parameters);

} // namespace Kelvaris::US
