#pragma once

#include "gpu/Aperture.h"
#include "gpu/Apodization.h"
#include "gpu/BeamformingArguments.h"
#include "gpu/ChannelData.h"
#include "gpu/Samples.h"
#include "gpu/TransitTimes.h"

// Delay-and-sum beamforming, one thread per output pixel.
//
// In words: for its pixel p and an event, a thread takes the receive elements around the nearest one that the F-number
// admits, computes for each the time from the transmitted wave to p and back to the element, interpolates the element's
// channel at that time, turns the phase back if the data are IQ, and adds the values with the window's weights:
//
//   out(p) = scale sum_{e = a0 ... a1} w(e - a0) R_e(fs tau_e) [exp(i 2 pi f tau_e)],
//   tau_e = tTx(p) + |p - element_e| / c - t0
//
// R_e is linear interpolation between samples. Nothing is divided by the number of elements or of events.
// NaN is the mark for no data at every level: a time outside the recording drops the element, an event without a valid
// element gives NaN, NaN events stay out of a compound, a pixel without a valid event is NaN (-32768 in integers).
//
// Grid: at least the extent of `output`; threads outside leave. No shared memory, no barriers; a thread writes its own
// pixel and nothing else, and its inputs are not written during the launch.
//
//   parameter          type           shape, unit
//   channelData        buffer of T    channels x fast time x slow time (events), in the order of the three axis numbers
//   samplePositions    float2 buffer  output's width x height, 1 slice for all events or one per event; pixel (x, y) in
//   mm output             buffer of T    1 column, frame or slice per event, by the workmode events EventInfo      one
//   per event, at least the extent of slow time elementPositions   float3         numElements, mm numElements int not
//   read elementToChannel   int buffer     numElements x events; channel of the element fNumber            float depth
//   over width of the receive aperture outputValueScaling float          factor on the result pitch              float
//   mm beamformerType     enum           window, or debug output: aperture size, start, end workmode           enum
//   PerLine (event x), CoherentCompound (all events), PerEvent (event z) channelsAxis, fastTimeAxis, slowTimeAxis  int
//   image axis (0 x, 1 y, 2 z) of each axis of channelData search             ElementSearch  a model of
//   elementPositions; a default one is always right, only slower
//
// T is short, float (RF), short2 or float2 (IQ, real part first). All arithmetic is in float, without contraction, with
// correctly rounded division and square root; only the weighted sum is a fused multiply-add.

namespace Kelvaris::US::GPU {

inline namespace KELVARIS_ARCH {

/// Position of pixel (x, y) for an event.
KELVARIS_KERNEL Point<float> samplePosition(const BeamformingArguments& a, int x, int y, int event, bool /*inside*/) {
  const float2 p = CUDA::readElement<float2>(a.samplePositions, x, y, a.samplePositions.slices == 1 ? 0 : event);
  return {p.x, p.y};
}

/// Scales, converts and stores the pixel value.
template <typename T>
KELVARIS_KERNEL void storePixel(const KernelBuffer& output, int x, int y, int z, WorkType<T, float> value,
                                bool /*inside*/) {
  CUDA::writeElement<T>(output, x, y, z, toSample<T>(value));
}

KELVARIS_KERNEL int elementIndexToChannelIndex(const KernelBuffer& elementToChannel, int element, int event) {
  return CUDA::readElement<int>(elementToChannel, element, event, 0);
}

/// The weighted sum over the aperture; NaN where no element has a value.
template <typename T, typename Window, typename F>
KELVARIS_KERNEL WorkType<T, F> sumAperture(const BeamformingArguments& a, const ChannelData& data, int event,
                                           Point<F> p, Aperture<F> aperture) {
  const EventInfo info = a.events[event];
  const F transmitTime = transmitTransitTime(p, info);
  const float lastSample = static_cast<float>(data.numSamples() - 1);
  const Window window(aperture.size());
  const auto empty = aperture.isEmpty();
  const int begin = static_cast<int>(lowest(select(empty, F(static_cast<float>(info.apertureLast)), aperture.first)));
  const int end = static_cast<int>(highest(select(empty, F(static_cast<float>(info.apertureFirst)), aperture.last)));

  const EventSamples<T, F> samples(data, event);
  auto sum = splat<WorkType<T, F>>(F(0.0f));
  auto counted = empty && !empty;
  // In batches of some elements, times first: with lanes, several of the long chains of root and division then overlap.
  constexpr int batch = LaneTraits<F>::batch;
  F tau[batch], s[batch];
  for (int batchBegin = begin; batchBegin <= end; batchBegin += batch) {
    const int batchSize = end - batchBegin < batch ? end - batchBegin + 1 : batch;
    for (int i = 0; i < batchSize; ++i) {
      const F receiveTime = receiveTransitTime(p, a.elementPositions[batchBegin + i], info.speedOfSound);
      tau[i] = (transmitTime + receiveTime) - F(info.startTime);
      s[i] = F(info.samplingFrequency) * tau[i];
    }
    for (int i = 0; i < batchSize; ++i) {
      const int e = batchBegin + i;
      const F element = static_cast<float>(e);
      const auto readable =
          element >= aperture.first && element <= aperture.last && s[i] >= F(0.0f) && s[i] < F(lastSample);
      if (!any(readable)) continue;

      const F k = select(readable, truncate(s[i]), F(0.0f));
      const SamplePair<T, F> pair = samples.readPair(elementIndexToChannelIndex(a.elementToChannel, e, event), k);
      WorkType<T, F> value = interpolate(pair.lower, pair.upper, s[i] - k);
      if constexpr (sizeof(value) > sizeof(F)) {
        constexpr float pi = 0x1.921fb6p+1f;
        const F phase = F((info.pulseFrequency + info.pulseFrequency) * pi) * tau[i];
        value = rotate(value, select(readable, phase, F(0.0f)));
      }
      const auto valid = readable && isValid(value);
      sum = select(valid, multiplyAdd(value, window(element - aperture.first), sum), sum);
      counted = counted || valid;
    }
  }
  return select(counted, sum, splat<WorkType<T, F>>(F(notANumber())));
}

/// The result of one event for the pixel, NaN where there is none.
template <typename T, typename F>
KELVARIS_KERNEL WorkType<T, F> beamformEvent(const BeamformingArguments& a, const ChannelData& data, int event,
                                             Point<F> p) {
  using W = WorkType<T, F>;
  const F none = notANumber();
  if (a.events[event].apertureLast < a.events[event].apertureFirst) return splat<W>(none);
  const Aperture<F> aperture = receiveAperture(p, a.elementPositions, a.events[event], a.fNumber, a.pitch, a.search);
  switch (a.beamformerType) {
  case BeamformerType::DebugApertureSize:
    return splat<W>(select(aperture.isEmpty(), none, aperture.size()));
  case BeamformerType::DebugApertureStart:
    return splat<W>(select(aperture.isEmpty(), none, aperture.first));
  case BeamformerType::DebugApertureEnd:
    return splat<W>(select(aperture.isEmpty(), none, aperture.last));
  case BeamformerType::HammingDas:
    return sumAperture<T, Hamming<F>>(a, data, event, p, aperture);
  case BeamformerType::TukeyDas:
    return sumAperture<T, Tukey<F>>(a, data, event, p, aperture);
  default:
    return sumAperture<T, Unweighted<F>>(a, data, event, p, aperture);
  }
}

/// The work of thread (x, y, z), or with lanes for F that of the threads (x, y, z) ... (x, y + lanes - 1, z).
template <typename T, typename F>
KELVARIS_KERNEL void beamformingThread(const BeamformingArguments& a, int x, int y, int z) {
  using W = WorkType<T, F>;
  const ChannelData data{a.channelData, a.channelsAxis, a.fastTimeAxis, a.slowTimeAxis};
  const int numEvents = data.numEvents();
  const int firstEvent = a.workmode == Workmode::PerLine ? x : a.workmode == Workmode::PerEvent ? z : 0;
  if (x >= a.output.width || y >= a.output.height || z >= a.output.slices || firstEvent >= numEvents) return;

  const auto inside = LaneTraits<F>::firstThreads(a.output.height - y);
  W pixel;
  if (a.workmode == Workmode::PerLine || a.workmode == Workmode::PerEvent) {
    pixel = beamformEvent<T>(a, data, firstEvent, samplePosition(a, x, y, firstEvent, inside));
  } else {
    pixel = splat<W>(F(0.0f));
    auto counted = inside && !inside;
    for (int event = 0; event < numEvents; ++event) {
      const W result = beamformEvent<T>(a, data, event, samplePosition(a, x, y, event, inside));
      const auto valid = isValid(result);
      pixel = select(valid, pixel + result, pixel);
      counted = counted || valid;
    }
    pixel = select(counted, pixel, splat<W>(F(notANumber())));
  }
  storePixel<T>(a.output, x, y, z, pixel * F(a.outputValueScaling), inside);
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
