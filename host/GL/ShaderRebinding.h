#pragma once

/// A way around a fault of Mesa's (seen with 22.3.6, llvmpipe). A program that has been used under one context and is
/// deleted under another is let go by the first one when that is next flushed, and leaves it without any shaders: where
/// the program that is used then is the one that was used before the flush, they aren't set again, and drawing with it
/// crashes. After another program they are set in any case.
///
/// Both need a current context and leave its state as it is. They do nothing where the driver isn't Mesa's, and throw
/// GL::Error.
namespace Kelvaris::GL {

/// To be called before drawing, with a complete frame buffer bound: draws nothing with another program.
void rebindDrawShaders();
/// To be called before a dispatch.
void rebindComputeShader();

} // namespace Kelvaris::GL
