#pragma once

#include "Lib/DataComponent.h"

#include <Eigen/Core>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::US {

class Transducer;

/// One firing of an array and the recording that follows it: which elements transmit, what wave leaves them, which
/// elements receive, in which time window, and on which channels. Positions in mm in the frame of the array
/// (Transducer), times in s, frequencies in Hz, speed of sound in mm/s, angles in rad, pulse length in cycles.
///
/// Three points define all delays. F: waveFiducial, S: waveStart, T: timeZeroPoint.
///
///     focused                          plane wave at angle a             diverging wave
///                                                                               F  virtual source
///     ---T---o---S---o---o---> x       ---T---o---S---o---o---> x              . .
///         \      |      /                 |\                            ---o--.-T-.--o---> x    (S on the array
///          \     |     /                  |a\  F = (sin a, cos a, 0)         .     .             below F)
///           \    |    /                   |  \     a direction,             .       .
///            \   |   /                    v   v    not a position          .         .
///             \  |  /                     y                                 spreads as circles around F
///              \ | /   converges on F
///                F     and spreads behind it
///
/// T is the element of the transmit aperture that fires first, at time zero: the one farthest from the focus, the one
/// with the smallest dot product with the direction, the one nearest to the virtual source.
class PulseEchoEvent : public DataComponent<PulseEchoEvent> {
public:
  enum class EventType : int { Focused = 0, PlaneWave = 1, DivergingWave = 2 };

  struct Transmit {
    double pulseFrequency = 0.0; ///< centre frequency, Hz
    double pulseLength = 0.0;    ///< cycles
    double speedOfSound = 0.0;   ///< mm/s
    int apertureFirst = 0;       ///< first transmitting element, from 0
    int apertureLast = -1;       ///< last transmitting element, inclusive; 0 and -1: no elements
    EventType eventType = EventType::Focused;
    Eigen::Vector3d timeZeroPoint = Eigen::Vector3d::Zero(); ///< element that fires first, mm
    /// Focus in mm, unit direction of propagation, or virtual source in mm, by eventType.
    Eigen::Vector3d waveFiducial = Eigen::Vector3d::Zero();
    Eigen::Vector3d waveStart = Eigen::Vector3d::Zero(); ///< centre of the aperture, mm

    /// When each element e of the transmit aperture fires, in s, in ascending element order:
    ///
    ///     focused      |T - F| / c - |e - F| / c
    ///     plane wave   (e - T) . F / c
    ///     diverging    |F - e| / c - |F - T| / c
    ///
    /// Empty for any other event type. The element at T has the delay 0; rounding noise between -1e-20 and 0 is
    /// removed. Negative delays, and the lack of a delay of at most 1e-9 s, are logged as warnings and stay.
    /// Throws std::invalid_argument if the aperture lies beyond the array.
    std::vector<double> calculateDelays(const Transducer& transducer) const;

    /// Exact, without waveStart.
    bool operator==(const Transmit& other) const;
    bool operator!=(const Transmit& other) const { return !(*this == other); }
  };

  struct Receive {
    int apertureFirst = 0;          ///< first receiving element, from 0
    int apertureLast = -1;          ///< last receiving element, inclusive; 0 and -1: no elements
    double samplingFrequency = 0.0; ///< Hz
    double startTime = 0.0;         ///< begin of the recording, s after the zero of time
    double endTime = 0.0;           ///< end of the recording, s
    /// The channel of each element of the receive aperture, in ascending element order.
    std::vector<int> elementToChannelMapping;

    /// Exact.
    bool operator==(const Receive& other) const;
    bool operator!=(const Receive& other) const { return !(*this == other); }
  };

  Transmit transmit;
  Receive receive;

  /// The create operations place both apertures around `origin` (calculateAperture), number the channels by
  /// calculateElementToChannelMapping with `receiveAperture` channels, and find the time zero point (the lowest element
  /// where several are equally good). Pulse, speed of sound, sampling frequency and times stay at their defaults.
  /// They throw std::bad_optional_access if an aperture is below 1, std::invalid_argument like calculateAperture.

  /// `angle`: of the direction of propagation from the y axis towards x.
  static PulseEchoEvent createPlaneWave(const Transducer& transducer, const Eigen::Vector3d& origin, double angle,
                                        int transmitAperture, int receiveAperture);
  static PulseEchoEvent createFocused(const Transducer& transducer, const Eigen::Vector3d& origin,
                                      const Eigen::Vector3d& focus, int transmitAperture, int receiveAperture);
  /// `virtualSource`: behind the array.
  static PulseEchoEvent createDivergingWave(const Transducer& transducer, const Eigen::Vector3d& origin,
                                            const Eigen::Vector3d& virtualSource, int transmitAperture,
                                            int receiveAperture);

  std::string id() const override { return "PulseEchoEvent"; }
  /// Needs the sub-properties "transmit" and "receive", else nothing changes. Missing keys leave their fields as they
  /// are.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;
  /// configure() that tells of bad input: false, and the event unchanged, if a value is there that can't be read.
  bool read(const Properties& properties);

  /// Exact, without waveStart; a NaN differs from everything.
  bool operator==(const PulseEchoEvent& other) const { return transmit == other.transmit && receive == other.receive; }
  bool operator!=(const PulseEchoEvent& other) const { return !(*this == other); }
};

/// First and last of the `size` elements nearest to `position` (mm), as one run: from the first element that is no
/// farther than the size-th nearest, so ties go to the lower indices. The whole array if `size` is at least its number
/// of elements; nothing, with an error in the log, if `size` is below 1. Throws std::invalid_argument if a distance
/// isn't a number.
std::optional<std::pair<int, int>> calculateAperture(const Transducer& transducer, const Eigen::Vector3d& position,
                                                     int size);

/// Channel of each element e from `first` to `last` inclusive: e % numberChannels, so that an element keeps its channel
/// wherever the aperture lies. Throws std::invalid_argument for no channels.
std::vector<int> calculateElementToChannelMapping(int first, int last, int numberChannels);

} // namespace Kelvaris::US
