#pragma once

#include <Eigen/Core>

#include <cstddef>
#include <string>

namespace Kelvaris {

/// Pixel types, by their OpenGL enumerants. A half-float image holds 32-bit floats in main memory and in device
/// buffers; only a texture stores halves.
enum PixelType : int {
  PixelInt8 = 5120,
  PixelUInt8 = 5121,
  PixelInt16 = 5122,
  PixelUInt16 = 5123,
  PixelInt32 = 5124,
  PixelUInt32 = 5125,
  PixelFloat = 5126,
  PixelDouble = 5130,
  PixelHalf = 5131
};

/// What an image looks like: pixel type, extent, spacing, and how stored values map to real ones. "Channels" are the
/// sample components of a pixel (two for IQ data), never transducer channels. Samples lie component by component, then
/// along the width, the height and the slices.
class ImageDescriptor {
public:
  ImageDescriptor() = default;
  ImageDescriptor(int pixelType, int width, int height, int slices = 1, int channels = 1);

  int pixelType() const { return m_pixelType; }
  void setPixelType(int pixelType) { m_pixelType = pixelType; }
  int channels() const { return m_channels; }
  void setChannels(int channels) { m_channels = channels; }

  int width() const { return m_dimensions.x(); }
  int height() const { return m_dimensions.y(); }
  int slices() const { return m_dimensions.z(); }
  /// (width, height, slices).
  const Eigen::Vector3i& dimensions() const { return m_dimensions; }
  /// A non-zero `channels` is taken over too.
  void setDimensions(const Eigen::Vector3i& dimensions, int channels = 0);

  /// Distance between sample centres along width, height and slices; in mm if isMetric().
  const Eigen::Vector3d& spacing() const { return m_spacing; }
  void setSpacing(const Eigen::Vector3d& spacing) { m_spacing = spacing; }
  bool isMetric() const { return m_metric; }
  void setMetric(bool metric) { m_metric = metric; }

  /// From texture coordinates, [0, 1] along width, height and slices, to image coordinates: spacing units, with the
  /// origin at the image's centre. The centre of pixel (i, j), at ((i + 0.5) / W, (j + 0.5) / H), lies at ((i + 0.5 -
  /// W/2) sx, (j + 0.5 - H/2) sy); in ultrasound, row 0 is the shallow end.
  Eigen::Matrix4d textureToImageMatrix() const;

  /// Real value = stored value / scale - shift.
  double shift() const { return m_shift; }
  void setShift(double shift) { m_shift = shift; }
  double scale() const { return m_scale; }
  void setScale(double scale) { m_scale = scale; }

  /// True if the pixel type is known and all extents and the channel count are at least 1.
  bool isValid() const;
  /// Same pixel type, channels, extent and metric flag; spacing, shift and scale equal within a relative `tolerance`.
  bool isApprox(const ImageDescriptor& other, double tolerance = 1e-9) const;

  /// Bytes of one sample component in main memory (4 for half floats); 0 for an unknown type.
  int bytesPerComponent() const { return bytesPerComponent(m_pixelType); }
  static int bytesPerComponent(int pixelType);
  /// Sample components in all. Throws std::length_error if the image would exceed the address space.
  std::size_t elementCount() const;
  std::size_t byteSize() const;

  /// For messages, for example "float, 512 x 512 x 1, 2 channels".
  std::string toString() const;
  /// For example "float"; "unknown type 17" for an unknown one.
  static std::string pixelTypeName(int pixelType);

private:
  int m_pixelType = 0;
  int m_channels = 1;
  Eigen::Vector3i m_dimensions = Eigen::Vector3i::Zero();
  Eigen::Vector3d m_spacing = Eigen::Vector3d::Ones();
  bool m_metric = true;
  double m_shift = 0.0;
  double m_scale = 1.0;
};

/// Calls `f.template operator()<T>()` with the type that samples of `pixelType` have in main memory. Returns false for
/// an unknown type.
template <typename F> bool dispatchPixelType(int pixelType, F&& f) {
  switch (pixelType) {
  case PixelInt8:
    f.template operator()<signed char>();
    return true;
  case PixelUInt8:
    f.template operator()<unsigned char>();
    return true;
  case PixelInt16:
    f.template operator()<short>();
    return true;
  case PixelUInt16:
    f.template operator()<unsigned short>();
    return true;
  case PixelInt32:
    f.template operator()<int>();
    return true;
  case PixelUInt32:
    f.template operator()<unsigned int>();
    return true;
  case PixelFloat:
  case PixelHalf:
    f.template operator()<float>();
    return true;
  case PixelDouble:
    f.template operator()<double>();
    return true;
  default:
    return false;
  }
}

} // namespace Kelvaris
