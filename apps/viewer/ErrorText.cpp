#include "viewer/ErrorText.h"

#include <fmt/format.h>

#include <exception>
#include <new>

namespace Kelvaris::Viewer {

std::string currentErrorText(const std::string& subject) {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return fmt::format("{}: there is not enough memory", subject);
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return fmt::format("{}: unknown error", subject);
  }
}

} // namespace Kelvaris::Viewer
