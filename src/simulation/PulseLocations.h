#pragma once

#include "simulation/FrameSizes.h"

#include <Eigen/Core>

#include <cstdint>
#include <span>
#include <vector>

namespace Kelvaris::US {

class FrameAcquisition;

/// Where the pulses of a frame's channel data begin: tables of samples, `pulses` entries for each column, from entry
/// (event x channels + channel) x pulses on. A negative entry stands for no pulse. Times are counted from the start of
/// the event and become samples by truncation; positions are in mm, the speed of sound in mm/s, delays in s.
///
/// Entries of columns that no element of an event is received on stay 0: pulses that begin with the recording. Channels
/// beyond those of the first event are left out. Both throw std::invalid_argument if a transmit aperture lies beyond
/// the array, and log what PulseEchoEvent::Transmit::calculateDelays does.

/// The pulses that leak from each transmitting element into the channel on which it also receives: when it fires. One
/// entry a column, -1 for elements that only receive.
std::vector<std::int32_t> transmitPulseLocations(const FrameAcquisition& frame, const FrameSizes& sizes);

/// The echoes of the wave of each transmitting element i off each scatterer s:
///
///     t = |transmitting element - s| / c + delay(i) + |receiving element - s| / c
///
/// transmitElements x scatterers entries a column, i fastest. The scatterers are displaced by offsets[e] mm in event e;
/// there must be an offset for each event. A wider transmit aperture than that of the first event counts no further
/// than that; the entries that a narrower one lacks stay 0.
std::vector<std::int32_t> echoPulseLocations(const FrameAcquisition& frame, const FrameSizes& sizes,
                                             std::span<const Eigen::Vector3d> scatterers,
                                             std::span<const Eigen::Vector3d> offsets);

/// Logs a warning for the first element of the frame that is received on a channel beyond those of the first event, or
/// on none.
void reportLostChannels(const FrameAcquisition& frame, const FrameSizes& sizes);

} // namespace Kelvaris::US
