#pragma once

#include "CUDA/KernelBuffer.h"
#include "CUDA/Scalar.h"
#include "CUDA/VectorTypes.h"

namespace Kelvaris::US::GPU {

using CUDA::float2;
using CUDA::float3;
using CUDA::KernelBuffer;
using CUDA::short2;

inline namespace KELVARIS_ARCH {

// The operations on one thread's float; those on lanes are found through their argument types.
using CUDA::absolute;
using CUDA::any;
using CUDA::copySign;
using CUDA::cosine;
using CUDA::highest;
using CUDA::infinity;
using CUDA::isNan;
using CUDA::LaneTraits;
using CUDA::lowest;
using CUDA::MaskOf;
using CUDA::multiplyAdd;
using CUDA::notANumber;
using CUDA::roundHalfAway;
using CUDA::select;
using CUDA::sineCosine;
using CUDA::squareRoot;
using CUDA::toInteger;
using CUDA::truncate;

/// A point of the imaging plane z = 0, in mm in the frame of the array. F is float, for one thread, or a bundle of
/// lanes, for as many neighbouring threads.
template <typename F> struct Point { F x, y; };

/// |p - q|, the squares added in the order x, y, z.
template <typename F> KELVARIS_KERNEL F distance(Point<F> p, float3 q) {
  const F dx = p.x - F(q.x), dy = p.y - F(q.y);
  const float dz = 0.0f - q.z;
  return squareRoot(dx * dx + dy * dy + F(dz * dz));
}

/// |p - q|, in the same order.
KELVARIS_KERNEL float distance(float3 p, float3 q) {
  const float dx = p.x - q.x, dy = p.y - q.y, dz = p.z - q.z;
  return squareRoot(dx * dx + dy * dy + dz * dz);
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
