#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// Files and folders by name. What they stand for need not exist. No operation throws but for want of memory.
namespace Kelvaris::Filesystem {

using Path = std::filesystem::path;

class File {
public:
  explicit File(Path path) : m_path(std::move(path)) {}

  const Path& path() const { return m_path; }
  /// True for a regular file, or a link to one.
  bool exists() const;
  /// Seconds since 1970-01-01 UTC, rounded towards zero; nothing if there is no such file.
  std::optional<std::int64_t> lastModified() const;
  /// True if it was there and is gone.
  bool remove() const;

private:
  Path m_path;
};

class Directory {
public:
  explicit Directory(Path path) : m_path(std::move(path)) {}

  const Path& path() const { return m_path; }
  /// True for a folder, or a link to one.
  bool exists() const;
  /// Creates it and the folders above it where they are missing. True if it exists then.
  bool create() const;
  Directory directory(const std::string& name) const { return Directory(m_path / name); }
  File file(const std::string& name) const { return File(m_path / name); }

  /// The folders and the regular files in it, links to such included, in no order; none if it can't be read.
  std::vector<Directory> directories() const;
  std::vector<File> files() const;

  /// Deletes it with all that is in it, as far as that can be done; links are deleted, not followed. True if something
  /// was there and all of it is gone.
  bool removeRecursive() const;

private:
  Path m_path;
};

/// The folder for temporary files: what TMPDIR names, else /tmp.
Directory tempDirectory();

} // namespace Kelvaris::Filesystem
