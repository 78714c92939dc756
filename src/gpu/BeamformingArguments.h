#pragma once

#include "CUDA/KernelBuffer.h"
#include "gpu/BeamformerType.h"
#include "gpu/ElementSearch.h"
#include "gpu/EventInfo.h"
#include "gpu/Workmode.h"

namespace Kelvaris::US::GPU {

/// The parameters of the beamforming kernel, in its order; told in BeamformingKernel.h.
struct BeamformingArguments {
  CUDA::KernelBuffer channelData;
  CUDA::KernelBuffer samplePositions;
  CUDA::KernelBuffer output;
  const EventInfo* events = nullptr;
  const CUDA::float3* elementPositions = nullptr;
  int numElements = 0;
  CUDA::KernelBuffer elementToChannel;
  float fNumber = 1;
  float outputValueScaling = 1;
  float pitch = 0;
  BeamformerType beamformerType = BeamformerType::UnweightedDas;
  Workmode workmode = Workmode::PerLine;
  int channelsAxis = 0;
  int fastTimeAxis = 1;
  int slowTimeAxis = 2;
  ElementSearch search{};
};

} // namespace Kelvaris::US::GPU
