#include "Stream/ImageStream.h"

#include "GL/GlImage.h"
#include "GL/RequireGL.h"

namespace Kelvaris {
namespace {

TEST(ImageStreamDataTest, KnowsImagesThatAreTexturesAlone) {
  KELVARIS_REQUIRE_GL();
  EXPECT_THROW(ImageStreamData(nullptr), std::invalid_argument);
  const auto images = std::make_shared<SharedImageSet>();
  const ImageStreamData data(images);
  const auto pixels = std::make_shared<TypedImage<float>>(2, 1);
  images->add(std::make_shared<SharedImage>(pixels));
  images->shared(0)->sharedCustom<GlImage>();
  EXPECT_FALSE(data.containsGlImage()) << "it is in memory as well";
  images->add(std::make_shared<SharedImage>(std::make_shared<GlImage>(*pixels)));
  EXPECT_TRUE(data.containsGlImage());

  const auto clone = data.shallowCloneToSharedImageSet();
  images->removeImages();
  EXPECT_EQ(clone->size(), 2);
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
  const std::pair<void (*)(Painter&), const char*> cases[] = {
      {[](Painter&) {}, "o+s+w+W+t+c+"},
      // A slot that closes the stream doesn't take the context away from the beat.
      {[](Painter& painter) { painter.closeAsync(); }, "o+s+w+t+c+W+"},
      {[](Painter& painter) {
         painter.closeAsync();
         painter.openAsync();
       },
       "o+s+w+t+c+o+W+c+"}};
  for (const auto& [slot, calls] : cases) {
    Painter painter;
    const boost::signals2::scoped_connection connection =
        painter.dataSignal.connect([&, act = slot](const auto&) { act(painter); });
    painter.openAsync();
    painter.startAsync();
    painter.worked.get_future().wait();
    painter.closeAsync().wait();
    EXPECT_EQ(painter.calls, calls);
  }
}

} // namespace
} // namespace Kelvaris
