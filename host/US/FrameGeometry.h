#pragma once

#include "Core/AlignedBox.h"
#include "Core/Configurable.h"
#include "Lib/ImageDescriptor.h"

#include <Eigen/Core>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::GL {
class AbstractInclude;
}

namespace Kelvaris::US {

/// Where a geometry's lengths are measured.
enum class CoordinateSystem : int {
  Pixel = 0, ///< pixels of the Cartesian image
  Image = 1  ///< mm
};

/// The shape of an ultrasound frame in the plane of the array, and the conversion between two kinds of coordinates:
///
///   frame (physical), mm                     normalised, [0, 1] x [0, 1]
///
///        array, origin at its centre            (0,0) ---- u, across ----> (1,0)
///   <--------------+-------------> x              |                          |
///                  |                              v, from the frame's        |
///                  |                              |  top to its bottom       |
///                  v  y, into the medium        (0,1) -------------------- (1,1)
///
/// Pixel (i, j) of a pre-scan image of w columns and h rows (i counts columns, j rows from the top) has its centre at
/// u = (i + 0.5) / w, v = (j + 0.5) / h. In a Cartesian image of the frame, image coordinates are frame coordinates
/// plus offset(), so that their origin is the centre of the image.
///
/// Angles are given in degrees, measured from the y axis towards positive x; an opening angle is half the full one.
/// Setters take any number. Where a conversion has no answer (a frame without depth or width, NaN anywhere, a point
/// from which no line of sight comes), it gives (NaN, NaN).
class FrameGeometry : public Configurable {
public:
  enum Direction : int { NormalizedToPhysical = 0, PhysicalToNormalized = 1 };

  /// The class name without its namespace; also the stored "type".
  virtual std::string type() const = 0;
  virtual std::unique_ptr<FrameGeometry> clone() const = 0;

  /// Length of the frame's lines in mm, from top to bottom (for a linear frame, its extent along y).
  double depth() const { return m_depth; }
  virtual void setDepth(double depth) { m_depth = depth; }

  Eigen::Vector2d convertPoint(const Eigen::Vector2d& point, Direction direction) const;

  /// The smallest box around the frame in frame coordinates, curved edges included; empty if nothing of the frame is
  /// defined.
  virtual Geometry::AlignedBox bounds() const = 0;

  /// The conversions in GLSL, with this geometry's values as they are now:
  ///
  ///   vec2 <prefix>ToPhysical(vec2 uv)        convertPoint, both ways
  ///   vec2 <prefix>ToNormalized(vec2 p)
  ///   vec2 <prefix>ImageToNormalized(vec2 p)  from image coordinates of the Cartesian image, p - offset() in the
  ///   frame;
  ///                                           what it gives are the texture coordinates of the pre-scan image
  ///
  /// They agree with convertPoint within single-precision rounding; where that gives NaN, a component of theirs isn't
  /// finite. Null in a build without OpenGL.
  virtual std::unique_ptr<GL::AbstractInclude> transformInclude() const;

  CoordinateSystem coordinateSystem() const { return m_coordinateSystem; }
  /// The same frame with its lengths and its offset measured in pixels of imgDesc(), or in mm: a pixel has the
  /// descriptor's spacing. A copy if they are already. Null with a logged error if imgDesc() isn't valid, has no
  /// positive spacing, or has pixels that aren't square and lines that fan out.
  virtual std::unique_ptr<FrameGeometry> convertTo(CoordinateSystem target) const;

  /// In mm; zero in a new geometry.
  const Eigen::Vector3d& offset() const { return m_offset; }
  void setOffset(const Eigen::Vector3d& offset) { m_offset = offset; }

  /// Descriptors of the frame's Cartesian and pre-scan images; not valid in a new geometry, and never stored.
  const ImageDescriptor& imgDesc() const { return m_imgDesc; }
  void setImgDesc(const ImageDescriptor& descriptor) { m_imgDesc = descriptor; }
  const ImageDescriptor& imgDescPrescan() const { return m_imgDescPrescan; }
  void setImgDescPrescan(const ImageDescriptor& descriptor) { m_imgDescPrescan = descriptor; }

  /// True if the other geometry is of the same type and coordinate system and no value (mm and degrees, the offset
  /// included) differs by more than `tolerance`; a NaN agrees with a NaN only. With `compareImages` both image
  /// descriptors must agree too.
  virtual bool isApprox(const FrameGeometry& other, double tolerance, bool compareImages = false) const;

  /// Reads all values; keys that may be missing take their defaults. If a value is missing or can't be read, or if a
  /// stored type is another one, an error is logged and the geometry stays as it was.
  void configure(const Properties* properties) override;
  /// Writes "type", "depth" and the values of the kind; "coordinateSystem" and "offset" where they aren't the default.
  void configuration(Properties* properties) const override;
  /// As `configure`. Returns whether the geometry was read.
  bool read(const Properties& properties);

protected:
  /// One value of a kind of geometry under its key.
  struct Value {
    const char* key;
    double value;
    double fallback = 0.0; ///< taken where the key is missing
    bool required = true;
  };

  explicit FrameGeometry(CoordinateSystem coordinateSystem) : m_coordinateSystem(coordinateSystem) {}
  FrameGeometry(const FrameGeometry&) = default;
  FrameGeometry& operator=(const FrameGeometry&) = default;

  /// The kind's own values, in the order in which they are stored.
  virtual std::vector<Value> values() const = 0;
  /// Takes values in the order of `values()`, after the depth has been set.
  virtual void setValues(const std::vector<double>& values) = 0;
  /// Empty if the depth and the values fit together, otherwise what is wrong, for the log.
  virtual std::string contradiction(double /*depth*/, const std::vector<double>& /*values*/) const { return {}; }

  /// Multiplies all lengths along x and along y by the factors. Where isIsotropic() they are equal.
  virtual void scale(const Eigen::Vector2d& factors) = 0;
  /// True if the shape would become another kind's by factors that differ.
  virtual bool isIsotropic() const { return true; }

  /// The conversions in GLSL, with '@' for the prefix, and the values of the uniforms by name without the prefix.
  struct Shader {
    std::string text;
    std::vector<std::pair<std::string, double>> uniforms;
  };
  virtual Shader shader() const = 0;

  virtual Eigen::Vector2d toPhysical(double u, double v) const = 0;
  virtual Eigen::Vector2d toNormalized(double x, double y) const = 0;

private:
  CoordinateSystem m_coordinateSystem;
  double m_depth = 0.0;
  Eigen::Vector3d m_offset = Eigen::Vector3d::Zero();
  ImageDescriptor m_imgDesc;
  ImageDescriptor m_imgDescPrescan;
};

} // namespace Kelvaris::US
