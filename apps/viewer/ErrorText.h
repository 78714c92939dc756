#pragma once

#include <string>

namespace Kelvaris::Viewer {

/// The message of the exception that is being handled. `subject`, what was being done or read, stands in front where
/// the exception doesn't say it.
std::string currentErrorText(const std::string& subject);

} // namespace Kelvaris::Viewer
