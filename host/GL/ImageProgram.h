#pragma once

#include "Core/AlignedBox.h"
#include "GL/Program.h"

#include <memory>
#include <string>

namespace Kelvaris::GL {

/// A fragment program that computes the pixels of an image: its `main` runs once a pixel and writes the pixel's
/// components into its one output, `layout(location = 0) out vec4 ...`. The text has
///
///   gl_FragCoord.xy         (i + 0.5, j + 0.5) for the pixel of column i and row j
///   uniform int u_slice     the pixel's slice, if the text declares it
///
/// and otherwise all that Program offers, with the same rules about contexts and errors.
class ImageProgram : public Program {
public:
  /// As Program::createCompute and createComputeFromText.
  static std::unique_ptr<ImageProgram> create(const std::string& resource, const std::string& defines = {},
                                              CompilationMode mode = CompilationMode::Immediate);
  static std::unique_ptr<ImageProgram> createFromText(const std::string& name, const std::string& text,
                                                      const std::string& defines = {},
                                                      CompilationMode mode = CompilationMode::Immediate);

  using Program::Program; ///< for the create functions alone

  /// Computes, with the enabled program, the pixels of all slices whose centres lie in `box` (in pixels: column i spans
  /// i to i + 1); the default, an empty box, means all of them. The output must not be among the textures that the
  /// program reads.
  void compute(const GlImage& output, const Geometry::AlignedBox& box = {});
};

} // namespace Kelvaris::GL
