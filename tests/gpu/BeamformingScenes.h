#pragma once

#include "reference/DelayAndSum.h"

namespace Kelvaris::Tests {

enum class ArrayShape { Linear, Convex };
enum class Wave : int { Focused = 0, Plane = 1, Diverging = 2 };

struct SceneOptions {
  ArrayShape shape = ArrayShape::Linear;
  Wave wave = Wave::Plane;
  int numElements = 32;
  int numEvents = 3;
  int numSamples = 700;
  int width = 21;
  int height = 37;
  unsigned seed = 1;
};

/// Elements on a line through the origin, tilted against the x axis, or on an arc that touches it there.
std::vector<CUDA::float3> linearElements(int n, double pitch, double tilt = 0);
std::vector<CUDA::float3> convexElements(int n, double pitch, double radius);

/// A scene in mm, s and Hz: elements of pitch 0.3, for a convex array on a radius of 20, a fan of events, channels in
/// shuffled order, smooth signals of amplitude about 1000, pixels on a jittered grid down to 20 mm, of which some are
/// NaN in some events. Receive apertures differ from event to event.
BeamformingScene makeScene(const SceneOptions& options);

} // namespace Kelvaris::Tests
