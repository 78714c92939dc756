#pragma once

#include <filesystem>

namespace Kelvaris {

/// A file that appears under its name only when it is complete: it is written under a hidden name in the same folder,
/// and commit() renames it. What is not committed is deleted.
class PendingFile {
public:
  /// Creates the empty temporary file. Throws std::runtime_error if the folder isn't there or can't be written, or if
  /// `target` is something else than a regular file.
  explicit PendingFile(const std::filesystem::path& target);
  ~PendingFile();
  PendingFile(PendingFile&& other) noexcept;
  PendingFile& operator=(PendingFile&&) = delete;

  /// Where to write.
  const std::filesystem::path& path() const { return m_path; }
  /// The name that the complete file gets.
  const std::filesystem::path& target() const { return m_target; }

  /// Brings the data to the disk and renames the file, replacing one that is there. Throws std::runtime_error.
  void commit();

private:
  std::filesystem::path m_target;
  std::filesystem::path m_path; ///< empty once committed or moved away
};

} // namespace Kelvaris
