#include "GL/SyncObject.h"

#include "GL/Check.h"
#include "GL/Context.h"
#include "GL/GlImage.h"
#include "GL/ImageProgram.h"
#include "RequireGL.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/Samples.h"

#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <thread>

namespace Kelvaris {
namespace {

using GL::ContextManager;

/// The pixel's column, after a long way there: every turn gives back the value that it got.
const char* const kSlowText = R"(#version 450 core
uniform int u_turns;
uniform float u_offset;
layout(location = 0) out vec4 result;
void main() {
  float value = gl_FragCoord.x - 0.5;
  for (int i = 0; i < u_turns; ++i)
    value = sqrt(value * value + float(i % 2)) * sqrt(1.0 - float(i % 2) / (value * value + 1.0));
  result = vec4(round(value) + u_offset);
}
)";

/// A texture that is still being drawn when this returns, and the mark behind the work. The context stays the caller's.
struct SlowPicture {
  static constexpr int kWidth = 64, kDraws = 20;
  GlImage texture{ImageDescriptor(PixelFloat, kWidth, kWidth)};
  GLsync witness = nullptr; ///< a mark before the other
  std::unique_ptr<GL::SyncObject> drawn;

  explicit SlowPicture(GL::ImageProgram& program) {
    program.enable();
    program.setUniform("u_turns", 400);
    for (int i = 1; i <= kDraws; ++i) {
      program.setUniform("u_offset", 100.0f * static_cast<float>(i));
      program.compute(texture);
    }
    program.disable();
    witness = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    drawn = std::make_unique<GL::SyncObject>();
    GL::flush();
  }

  ~SlowPicture() {
    const ContextManager::ActivationGuard guard;
    glDeleteSync(witness);
  }

  /// Drivers may wait by themselves when a texture is read, so the pixels alone don't tell.
  bool isDrawn() const {
    const ContextManager::ActivationGuard guard;
    GLint status = GL_UNSIGNALED;
    glGetSynciv(witness, GL_SYNC_STATUS, 1, nullptr, &status);
    return status == GL_SIGNALED;
  }

  double error() const {
    return Tests::worstError(*texture.download(), [](int x, int, int, int) { return x + 100.0 * kDraws; });
  }
};

TEST(SyncObject, AnotherContextSeesWhatASlowProducerHasDrawn) {
  KELVARIS_REQUIRE_GL();
  std::unique_ptr<GL::ImageProgram> program;
  ContextManager::get().runWithOpenGL([&] { program = GL::ImageProgram::createFromText("slow", kSlowText); });
  ASSERT_TRUE(program);
  for (const bool consumerHasContext : {true, false}) {
    std::unique_ptr<SlowPicture> picture;
    std::latch handedOver(1), seen(1);
    std::thread producer([&] {
      const auto context = ContextManager::get().createContext();
      picture = std::make_unique<SlowPicture>(*program);
      handedOver.count_down();
      seen.wait(); // a context that ends finishes its work, which would do instead of waiting for the mark
    });
    std::thread consumer([&] {
      const auto context = consumerHasContext ? ContextManager::get().createContext() : nullptr;
      handedOver.wait();
      picture->drawn->wait();
      EXPECT_TRUE(picture->isDrawn());
      EXPECT_EQ(picture->error(), 0.0);
      picture->drawn->wait(); // at once
      if (consumerHasContext) picture->drawn.reset();
      seen.count_down();
    });
    producer.join();
    consumer.join();
    EXPECT_FALSE(ContextManager::hasCurrent());
  } // the picture and, in the second round, the mark end without a context
}

TEST(SyncObject, NeedsWorkToMark) {
  KELVARIS_REQUIRE_GL();
  EXPECT_CONTAINS(Tests::errorOf<GL::Error>([] { const GL::SyncObject sync; }), "the thread has none");
  EXPECT_THROW(GL::flush(), GL::Error);
}

TEST(Context, IsCurrentForItsWholeLifeOnOneThread) {
  KELVARIS_REQUIRE_GL();
  ContextManager& manager = ContextManager::get();
  auto context = manager.createContext();
  { const ContextManager::ActivationGuard nested; }
  EXPECT_TRUE(ContextManager::hasCurrent());
  EXPECT_CONTAINS(Tests::errorOf<GL::Error>([&] { manager.createContext(); }), "has an OpenGL context already");
  std::thread([&] { EXPECT_FALSE(ContextManager::hasCurrent()); }).join();
  context.reset();
  EXPECT_FALSE(ContextManager::hasCurrent());

  std::thread([&] { // and stays there with its context
    std::unique_ptr<GL::Context> carriedOff = manager.createContext();
    std::thread([&] {
      Tests::ExpectedLog log;
      carriedOff.reset();
      EXPECT_TRUE(log.contains("ends on another thread than the one that it is current on"));
    }).join();
    EXPECT_TRUE(ContextManager::hasCurrent());
  })
      .join();
}

TEST(ContextManager, RunsWithTheContextThatIsThereOrOneForTheCall) {
  KELVARIS_REQUIRE_GL();
  ContextManager& manager = ContextManager::get();
  const auto fail = [] { throw std::runtime_error(ContextManager::hasCurrent() ? "with" : "without"); };
  EXPECT_EQ(Tests::errorOf([&] { manager.runWithOpenGL(fail); }), "with");
  EXPECT_FALSE(ContextManager::hasCurrent());
  const auto context = manager.createContext();
  EXPECT_EQ(Tests::errorOf([&] { manager.runWithOpenGL(fail); }), "with");
  EXPECT_TRUE(ContextManager::hasCurrent());
}

} // namespace
} // namespace Kelvaris
