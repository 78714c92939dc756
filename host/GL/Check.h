#pragma once

#include <stdexcept>
#include <type_traits>

namespace Kelvaris::GL {

/// OpenGL isn't available, or one of its calls failed.
class Error : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

namespace Detail {
/// Throws an Error with file, line, the call and the error's name if OpenGL has recorded one.
void check(const char* call, const char* file, int line);

template <typename Call> decltype(auto) checked(Call&& glCall, const char* call, const char* file, int line) {
  if constexpr (std::is_void_v<decltype(glCall())>) {
    glCall();
    check(call, file, line);
  } else {
    auto result = glCall();
    check(call, file, line);
    return result;
  }
}
} // namespace Detail

} // namespace Kelvaris::GL

/// Makes an OpenGL call and throws GL::Error if it failed. Needs a current context.
#define KELVARIS_GL_CHECKED(call) ::Kelvaris::GL::Detail::checked([&] { return call; }, #call, __FILE__, __LINE__)
