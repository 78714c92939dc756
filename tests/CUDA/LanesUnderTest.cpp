#include "LanesUnderTest.h"

#include "CUDA/Lanes.h"

namespace Kelvaris::CUDA::KELVARIS_ARCH {
namespace {

template <Lanes (*f)(Lanes)> void apply(const float* in, float* out, std::size_t n) {
  for (std::size_t i = 0; i < n; i += Lanes::count)
    f(Lanes::load(in + i)).store(out + i);
}

Lanes sine(Lanes v) {
  Lanes s, c;
  sineCosine(v, s, c);
  return s;
}
Lanes cosineOf(Lanes v) {
  return cosine(v);
}
Lanes rounded(Lanes v) {
  return roundHalfAway(v);
}
Lanes truncated(Lanes v) {
  return truncate(v);
}
void fused(const float* in, float* out, std::size_t n) {
  for (std::size_t i = 0; i < n; i += Lanes::count)
    multiplyAdd(Lanes::load(in + i), Lanes::load(in + n + i), Lanes::load(in + 2 * n + i)).store(out + i);
}

} // namespace

LanesUnderTest lanesUnderTest();
LanesUnderTest lanesUnderTest() {
  return {apply<sine>, apply<cosineOf>, apply<rounded>, apply<truncated>, fused};
}

} // namespace Kelvaris::CUDA::KELVARIS_ARCH
