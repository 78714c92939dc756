#pragma once

namespace Kelvaris::CUDA {

/// Element types of device images and arrays, the same with and without the CUDA toolkit. Complex samples have their
/// real part in x.
struct alignas(8) float2 {
  float x, y;
};
struct float3 {
  float x, y, z;
};
struct alignas(4) short2 {
  short x, y;
};

} // namespace Kelvaris::CUDA
