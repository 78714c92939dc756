#include "Stream/ImageStream.h"

#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/RequireGL.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Kelvaris {
namespace {

std::shared_ptr<SharedImage> imageIn(bool memory, bool texture) {
  auto pixels = std::make_shared<TypedImage<float>>(2, 1);
  if (memory) {
    auto image = std::make_shared<SharedImage>(pixels);
    if (texture) image->sharedCustom<GlImage>();
    return image;
  }
  return std::make_shared<SharedImage>(std::make_shared<GlImage>(*pixels));
}

TEST(ImageStreamDataTest, KnowsImagesThatAreTexturesAlone) {
  KELVARIS_REQUIRE_GL();
  const struct {
    std::vector<std::pair<bool, bool>> memoryAndTexture;
    bool containsGlImage;
  } cases[] = {{{}, false},
               {{{true, false}}, false},
               {{{true, true}}, false},
               {{{false, true}}, true},
               {{{true, true}, {false, true}}, true}};
  for (const auto& c : cases) {
    auto images = std::make_shared<SharedImageSet>();
    for (const auto& [memory, texture] : c.memoryAndTexture)
      images->add(imageIn(memory, texture));
    const ImageStreamData data(images);
    EXPECT_EQ(data.containsGlImage(), c.containsGlImage);
    EXPECT_EQ(data.size(), static_cast<int>(c.memoryAndTexture.size()));
  }
  EXPECT_THROW(ImageStreamData(nullptr), std::invalid_argument);
}

TEST(ImageStreamDataTest, ShallowClonesShareTheImages) {
  auto images = std::make_shared<SharedImageSet>();
  images->add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(2, 1)), 7.0);
  const ImageStreamData data(images);
  const auto clone = data.shallowCloneToSharedImageSet();
  images->removeImages();
  ASSERT_EQ(clone->size(), 1);
  EXPECT_EQ(clone->timestamp(0), 7.0);
  EXPECT_EQ(data.size(), 0);
}

/// Notes for each call on the worker thread whether a context is current.
struct Painter : ImageStream {
  Painter() : ImageStream("painter") {}
  ~Painter() override { closeAsync().wait(); }
  bool note(char call) {
    calls += call;
    calls += GL::ContextManager::hasCurrent() ? '+' : '-';
    return true;
  }
  bool openImpl() override { return note('o'); }
  bool closeImpl() override { return note('c'); }
  bool startImpl() override { return note('s'); }
  bool stopImpl() override { return note('t'); }
  Continuation doWork() override {
    note('w');
    dataSignal.emitSignal(nullptr);
    note('W');
    worked.set_value();
    return Continuation::never();
  }
  std::promise<void> worked;
  std::string calls; // read when the stream is closed
};

TEST(ImageStreamTest, TheWorkerHasAContextWhileTheStreamIsOpen) {
  KELVARIS_REQUIRE_GL();
  const struct {
    void (*slot)(Painter&);
    const char* calls;
  } cases[] = {{[](Painter&) {}, "o+s+w+W+t+c+"},
               // A slot that closes the stream doesn't take the context away from the beat.
               {[](Painter& painter) { painter.closeAsync(); }, "o+s+w+t+c+W+"},
               {[](Painter& painter) {
                  painter.closeAsync();
                  painter.openAsync();
                },
                "o+s+w+t+c+o+W+c+"}};
  for (const auto& c : cases) {
    Painter painter;
    const boost::signals2::scoped_connection connection =
        painter.dataSignal.connect([&](const auto&) { c.slot(painter); });
    painter.openAsync();
    painter.startAsync();
    painter.worked.get_future().wait();
    painter.closeAsync().wait();
    EXPECT_EQ(painter.calls, c.calls);
  }
}

} // namespace
} // namespace Kelvaris
