#pragma once

#include "reference/DelayAndSum.h"

namespace Kelvaris::Tests {

enum class ArrayShape { Linear, Convex };
enum class Wave : int { Focused = 0, Plane = 1, Diverging = 2, Unknown = 3 };

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

/// Elements of pitch 0.3 mm; on a convex array on a radius of 20 mm.
std::vector<CUDA::float3> elementPositions(ArrayShape shape, int numElements);

/// A scene in mm, s and Hz: a fan of events, channels in shuffled order, smooth signals of amplitude about 1000, pixels
/// on a jittered grid down to 20 mm, of which some are NaN in some events. Receive apertures differ from event to
/// event.
BeamformingScene makeScene(const SceneOptions& options);

} // namespace Kelvaris::Tests
