#version 450 core
// One pixel of a Cartesian image from a pre-scan image, whose pixels follow the lines of the transducer.
//
//   pixel (i, j) -> texture coordinates of the output, [0, 1]   ((i + 0.5) / W, (j + 0.5) / H)
//                -> image coordinates, mm                       u_textureToImageMatrix
//                -> texture coordinates of the pre-scan image   transformImageToNormalized, outside [0, 1]: not in the frame
//                -> bilinear between the four nearest pre-scan pixel centres
//
// Beyond the outermost centres, at most half a pre-scan pixel, the outermost pixels go on. Where the nearest pixel is
// invalid, so is the output; other invalid pixels take no part, and the weights of the rest are scaled to sum 1.

#ifdef MULTIPLE_IMAGES
uniform sampler2DArray u_prescanInput;
uniform int u_slice;
#else
uniform sampler2D u_prescanInput;
#endif
uniform mat4 u_textureToImageMatrix;
uniform vec2 u_outputSize;        // pixels
uniform float u_outputMaskValue;
uniform float u_besideMaskValue;  // what a valid value that equals u_outputMaskValue becomes
uniform int u_roundsToIntegers;
uniform int u_channels;

layout(location = 0) out vec4 result;

#abstract_include transform
#abstract_include mask optional

vec4 prescanPixel(ivec2 pixel) {
#ifdef MULTIPLE_IMAGES
  return texelFetch(u_prescanInput, ivec3(pixel, u_slice), 0);
#else
  return texelFetch(u_prescanInput, pixel, 0);
#endif
}

bool isValid(vec4 texel, ivec2 pixel, vec2 size) {
#ifdef HAS_MASK
  // The texture fills up the components that the image doesn't have by numbers that a mask mustn't see.
  texel = mix(texel.rrrr, texel, lessThan(ivec4(0, 1, 2, 3), ivec4(u_channels)));
  return maskIsValid(texel, (vec2(pixel) + 0.5) / size);
#else
  return true;
#endif
}

void main() {
  result = vec4(u_outputMaskValue);
  vec2 image = (u_textureToImageMatrix * vec4(gl_FragCoord.xy / u_outputSize, 0.5, 1.0)).xy;
  vec2 uv = transformImageToNormalized(image);
  // What isn't finite is told by its bits: comparisons with NaN may be optimised away.
  if (any(greaterThanEqual(floatBitsToUint(uv) & 0x7FFFFFFFu, uvec2(0x7F800000u))) || any(lessThan(uv, vec2(0.0))) ||
      any(greaterThan(uv, vec2(1.0))))
    return;

  ivec2 size = textureSize(u_prescanInput, 0).xy;
  vec2 position = clamp(uv * vec2(size) - 0.5, vec2(0.0), vec2(size - 1)); // in pixels, 0 at the centre of the first
  ivec2 first = ivec2(position);
  vec2 fraction = position - vec2(first);
  ivec2 nearest = ivec2(position + 0.5);

  vec4 sum = vec4(0.0);
  float weights = 0.0;
  for (int k = 0; k < 4; ++k) {
    ivec2 corner = ivec2(k & 1, k >> 1);
    ivec2 pixel = first + corner;
    vec2 share = mix(1.0 - fraction, fraction, vec2(corner));
    float weight = share.x * share.y;
    // Also keeps off the pixels beyond the last, and what isn't finite where it has no part.
    if (weight == 0.0)
      continue;
    vec4 texel = prescanPixel(pixel);
    if (isValid(texel, pixel, vec2(size))) {
      sum += weight * texel;
      weights += weight;
    } else if (pixel == nearest) {
      return;
    }
  }
  vec4 value = sum / weights;
  if (u_roundsToIntegers != 0)
    value = sign(value) * (floor(abs(value)) + step(0.5, fract(abs(value))));
  result = mix(value, vec4(u_besideMaskValue), equal(value, vec4(u_outputMaskValue)));
}
