#include "SimulatedStreamCases.h"
#include "support/ErrorOf.h"

#include "GL/Check.h"

#include <cstdlib>

namespace Kelvaris::US {
namespace {

using Tests::errorOf;

TEST(SimulatedStreamWithoutGL, SaysSoWhenItIsOpened) {
  // The vendor-neutral EGL library takes its drivers from these folders, and finds none.
  setenv("__EGL_VENDOR_LIBRARY_DIRS", "/nonexistent", 1);
  setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/none.json", 1);
  if (GL::ContextManager::get().isAvailable()) GTEST_SKIP() << "this EGL library doesn't look for drivers in a folder";
  const std::string reason = GL::ContextManager::get().unavailableReason();
  const auto stream = Tests::streamOf(AcquisitionSequence({Tests::shortFrame(1)}), 0.5);
  EXPECT_CONTAINS(errorOf<GL::Error>([&] { stream->openAsync().get(); }), reason);
  EXPECT_EQ(stream->state(), Stream::State::Closed);
  EXPECT_CONTAINS(errorOf<GL::Error>([&] { stream->getNextAcquisition(); }), reason);
  stream->setPhantomType(PhantomType::Grid5mm);
  EXPECT_EQ(stream->size(), 1);
}

} // namespace
} // namespace Kelvaris::US
