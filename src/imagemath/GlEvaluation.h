#pragma once

#include "Lib/ImageDescriptor.h"
#include "Lib/SharedImage.h"
#include "imagemath/GlExprInterface.h"

#include <string>

/// How an expression becomes a shader: its text is generated from the tree, with all constants as uniforms, so that the
/// same formula with other values runs the same program.
namespace Kelvaris::ImageMath::internal {

/// The text of a GL::ImageProgram that evaluates the expression for an image like `target`. Gives the tree its names.
std::string shaderText(const GlExprInterface& expr, const ImageDescriptor& target, bool raw);

/// Evaluates the expression into the image, which then lies in a texture, complete for all contexts; see
/// ArrayGl::assignGl(). With `raw`, values are stored as they are.
bool evaluateGl(const GlExprInterface& expr, SharedImage& target, bool raw);

} // namespace Kelvaris::ImageMath::internal
