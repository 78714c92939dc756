#pragma once

#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"
#include "US/FrameGeometry.h"

#include <functional>
#include <memory>
#include <utility>

namespace Kelvaris {
class GlImage;
}
namespace Kelvaris::GL {
class ImageProgram;
}

namespace Kelvaris::US {

/// Turns a pre-scan image, whose pixels follow the lines of the transducer, into a Cartesian one, with one fragment
/// program over the output.
///
/// Input: an image of any pixel type, 1 to 4 channels, any number of slices, with a FrameGeometryMetadata and an
/// UltrasoundMetadata. Output: the same pixel type, channels and slices, on the geometry's Cartesian image: its
/// imgDesc(), or, where it has none, the smallest one around the frame with square pixels of the pre-scan image's
/// spacing along its lines. An offset that the geometry brings along without an imgDesc() moves the frame within the
/// picture.
///
/// Between the centres of the pre-scan pixels the output is bilinear, beyond the outermost ones the image goes on as it
/// ends. Integers are rounded half away from zero; those of 32 bits, and doubles, to 24 significant bits, as OpenGL
/// computes in float.
///
/// Invalid are pixels outside of the frame, and those whose nearest pre-scan pixel is invalid: they hold NaN in a float
/// image, -32768 in a 16-bit signed one, 0 in all others. A masked input gives an output masked by that value; valid
/// pixels that would come out with it become the next one beside it (-32767, 1, or the smallest normal number), so that
/// they stay valid. An input without mask gives an output with a FanMask, and values are left alone.
///
/// There are no parameters. compute() holds one frame beside input and output and leaves its result in main memory,
/// processImage() leaves a texture. One thread at a time may work with an object.
class ScanConversionUltrafastImaging : public Algorithm, public SequentialImageProcessor {
public:
  /// The input must outlive the algorithm; it may be null where only processImage() is called.
  explicit ScanConversionUltrafastImaging(const SharedImageSet* input);
  ~ScanConversionUltrafastImaging() override;

  static bool createCompatible(const DataList& data, Algorithm** algorithm);

  /// The first image says what all have in common: pixel type, geometry, and whether there is a mask.
  void compute() override;
  OwningDataList takeOutput() override;
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override;

  /// The mask of the output for `input` on the Cartesian image of `geometry`, whose imgDesc() must be valid.
  std::shared_ptr<Mask> createOutputMask(const SharedImage& input, const FrameGeometry& geometry) const;
  /// Lets the program ask the mask (null: none) about pre-scan pixels. False, with a logged error, if it can't. Needs a
  /// current context, and throws GL::Error without one.
  bool attachMask(const std::shared_ptr<const Mask>& mask) const;
  /// Tells the program whether the images have one slice or several. Needs a current context once the program has run.
  void setShaderDefines(const ImageDescriptor& descriptor) const;

private:
  struct Conversion;
  bool withProgram(const Conversion& conversion, const std::function<bool()>& work) const;
  bool convert(const SharedImage& image, const Conversion& conversion, std::shared_ptr<GlImage>& texture,
               const GlImage& output) const;

  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  std::unique_ptr<GL::ImageProgram> m_program;
};

} // namespace Kelvaris::US
