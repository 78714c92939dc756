#pragma once

#include "viewer/DataItem.h"

#include <QString>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What the files of Workspace share.
namespace Kelvaris::Viewer {

inline QString text(const std::string& utf8) {
  return QString::fromStdString(utf8);
}

/// An empty path stays empty, for an error in words later.
inline std::filesystem::path absolutePath(const std::filesystem::path& path) {
  return path.empty() ? path : std::filesystem::absolute(path).lexically_normal();
}

inline std::string statusText(int status) {
  return "It ended with status " + std::to_string(status);
}

/// For messages: `"Disk" (volume, 128 x 2688 x 1, int16), "Images" (...)`.
std::string namesOf(const std::vector<DataItem*>& items);

template <typename T> std::unique_ptr<T> extract(std::vector<std::unique_ptr<T>>& owners, const T* owned) {
  const auto found = std::find_if(owners.begin(), owners.end(), [&](const auto& o) { return o.get() == owned; });
  std::unique_ptr<T> extracted = std::move(*found);
  owners.erase(found);
  return extracted;
}

/// Lists are kept in the order of the ids: what is made anew for a session comes to its old place.
template <typename T> T& insert(std::vector<std::unique_ptr<T>>& owners, std::unique_ptr<T> added) {
  const auto before = [](const auto& a, const auto& b) { return a->id() < b->id(); };
  return **owners.insert(std::upper_bound(owners.begin(), owners.end(), added, before), std::move(added));
}

template <typename T> T* findById(const std::vector<std::unique_ptr<T>>& owners, int id) {
  const auto found = std::find_if(owners.begin(), owners.end(), [&](const auto& o) { return o->id() == id; });
  return found == owners.end() ? nullptr : found->get();
}

} // namespace Kelvaris::Viewer
