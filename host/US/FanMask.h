#pragma once

#include "GL/AbstractInclude.h"
#include "Lib/Mask.h"
#include "US/FrameGeometry.h"

#include <memory>
#include <string>

namespace Kelvaris::US {

/// Marks the pixels of a Cartesian image whose centres lie outside of the frame as invalid. A pixel at the texture
/// coordinates (s, t), [0, 1] x [0, 1], has the image coordinates of the geometry's imgDesc(), textureToImageMatrix()
/// times (s, t), and the frame coordinates image - offset(); it is inside where its normalised coordinates lie in [0,
/// 1] x [0, 1]. In main memory that is computed in double precision, in a shader in float, so that pixels on the very
/// edge may differ.
class FanMask : public Mask, public GL::AbstractInclude {
public:
  /// Keeps a copy. Throws std::invalid_argument if imgDesc() isn't valid.
  explicit FanMask(const FrameGeometry& geometry);
  ~FanMask() override;

  const FrameGeometry& geometry() const { return *m_geometry; }
  /// Equal geometries with image descriptors that agree.
  bool operator==(const FanMask& other) const { return m_geometry->isApprox(*other.m_geometry, 0.0, true); }

  /// 2; 0 in a build without OpenGL.
  int deviceStrategy() const override;
  void evaluate(const MemImage& image, int x, int y, int z, int count, unsigned char* valid) const override;

  std::string id() const override { return "FanMask"; }
  /// The geometry's; its image descriptors aren't in it.
  Properties configuration() const override;
  /// Makes the mask of `image` from a configuration(). Null, with an error in the log, if that holds no geometry.
  static std::shared_ptr<const FanMask> create(const Properties& configuration, const ImageDescriptor& image);

  /// `bool <prefix>IsValid(vec4 texel, vec2 position)`, beside what the geometry's transformInclude() gives. Empty in a
  /// build without OpenGL.
  std::string source(const std::string& prefix) const override;
  void setArguments(GL::Program& program, const std::string& name) const override;

private:
  std::unique_ptr<const FrameGeometry> m_geometry;
  std::unique_ptr<const GL::AbstractInclude> m_transform; ///< null in a build without OpenGL
};

} // namespace Kelvaris::US
