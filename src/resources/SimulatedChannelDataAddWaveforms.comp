#version 450 core
// Adds one short pulse after the other to the columns of a block of channel data of (channels, samples, events). One
// invocation works on one column, so nothing needs to be atomic: it takes the u_numPulses.x entries that start at (event
// * channels + channel) * u_numPulses.x of the locations, and adds the pulse from each of these samples on. A negative
// location stands for no pulse; what falls behind the last sample is dropped.

layout(local_size_x = 8, local_size_y = 8, local_size_z = 1) in;

#ifdef ONE_EVENT
layout(r32f) uniform image2D u_channelData;
#define PIXEL(channel, y, event) ivec2(channel, y)
#else
layout(r32f) uniform image2DArray u_channelData;
#define PIXEL(channel, y, event) ivec3(channel, y, event)
#endif
layout(r32f) readonly uniform image2D u_pulse;
layout(std430) readonly buffer _pulseLocations { int pulseLocations[]; };

uniform ivec3 u_channelDataSize; // channels, samples, events
uniform int u_pulseLength;       // samples
uniform ivec3 u_numPulses;       // pulses a column, channels, events

void main() {
  int channel = int(gl_GlobalInvocationID.x), event = int(gl_GlobalInvocationID.y);
  if (channel >= u_numPulses.y || event >= u_numPulses.z)
    return;
  int first = (event * u_numPulses.y + channel) * u_numPulses.x;
  for (int k = 0; k < u_numPulses.x; ++k) {
    int location = pulseLocations[first + k];
    if (location < 0)
      continue;
    int length = min(u_pulseLength, u_channelDataSize.y - location);
    for (int i = 0; i < length; ++i) {
      vec4 sum = imageLoad(u_channelData, PIXEL(channel, location + i, event)) + imageLoad(u_pulse, ivec2(i, 0));
      imageStore(u_channelData, PIXEL(channel, location + i, event), sum);
    }
  }
}
