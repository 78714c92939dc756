#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <string>

namespace Kelvaris::Tests {

/// The message of the exception that `action` throws; empty if it throws none. Exceptions of other types pass.
template <typename Exception = std::exception, typename Action> std::string errorOf(Action&& action) {
  try {
    action();
  } catch (const Exception& error) {
    return error.what();
  }
  return {};
}

inline bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// Shows both texts where `part` isn't in `text`.
#define EXPECT_CONTAINS(text, part) EXPECT_PRED2(::Kelvaris::Tests::contains, text, part)

} // namespace Kelvaris::Tests
