#pragma once

#include "CUDA/CpuVariant.h"
#include "gpu/BeamformingArguments.h"
#include "reference/DelayAndSum.h"

#include <functional>
#include <vector>

namespace Kelvaris::Tests {

/// Rounds the samples to what T can hold.
template <typename T> void quantise(BeamformingScene& scene);

/// Runs the beamforming kernel on the scene's data, in the order of the scene's axes and on the current executor; on
/// the CPU with the given instruction set. Pixels that the kernel does not write hold 77 in each component.
template <typename T>
std::vector<T> runKernel(const BeamformingScene& scene, CUDA::CpuVariant variant,
                         const std::function<void(US::GPU::BeamformingArguments&)>& change = {});

/// Components as complex doubles; the invalid marker (NaN, -32768) becomes NaN.
template <typename T> std::complex<double> toComplex(T value);

} // namespace Kelvaris::Tests
