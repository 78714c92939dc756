#include "Core/Filesystem.h"

#include <chrono>
#include <system_error>

namespace Kelvaris::Filesystem {
namespace fs = std::filesystem;
namespace {

/// What lies in `folder` and is a `Kind` that exists.
template <typename Kind> std::vector<Kind> entries(const Path& folder) {
  std::vector<Kind> found;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    if (Kind candidate(entry->path()); candidate.exists()) found.push_back(std::move(candidate));
  return found;
}

} // namespace

bool File::exists() const {
  std::error_code error;
  return fs::is_regular_file(m_path, error);
}

std::optional<std::int64_t> File::lastModified() const {
  std::error_code error;
  const fs::file_time_type time = fs::last_write_time(m_path, error);
  if (error) return std::nullopt;
  const auto sinceEpoch = std::chrono::file_clock::to_sys(time).time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch).count();
}

bool File::remove() const {
  std::error_code error;
  return fs::remove(m_path, error);
}

bool Directory::exists() const {
  std::error_code error;
  return fs::is_directory(m_path, error);
}

bool Directory::create() const {
  std::error_code error;
  fs::create_directories(m_path, error);
  return exists();
}

std::vector<Directory> Directory::directories() const {
  return entries<Directory>(m_path);
}

std::vector<File> Directory::files() const {
  return entries<File>(m_path);
}

bool Directory::removeRecursive() const {
  std::error_code error;
  return fs::remove_all(m_path, error) > 0 && !error;
}

Directory tempDirectory() {
  std::error_code error;
  const Path path = fs::temp_directory_path(error);
  return Directory(error ? Path("/tmp") : path);
}

} // namespace Kelvaris::Filesystem
