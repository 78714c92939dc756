#version 450 core
// The physical position, in mm, of every pixel centre of a frame. Pixel (i, j) of a w x h frame has its centre at the
// normalised coordinates ((i + 0.5) / w, (j + 0.5) / h); `transform` is the frame geometry's conversion.

layout(local_size_x = 8, local_size_y = 8, local_size_z = 1) in;

layout(rg32f) writeonly uniform image2D u_samplePositionMap;

#abstract_include transform

void main() {
  ivec2 size = imageSize(u_samplePositionMap);
  ivec2 pixel = ivec2(gl_GlobalInvocationID.xy);
  if (any(greaterThanEqual(pixel, size)))
    return;
  vec2 normalized = (vec2(pixel) + 0.5) / vec2(size);
  imageStore(u_samplePositionMap, pixel, vec4(transformToPhysical(normalized), 0.0, 0.0));
}
