#include "Lib/PendingFile.h"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace Kelvaris {
namespace {

namespace fs = std::filesystem;

/// The file that a symbolic link leads to, so that the link survives the renaming.
fs::path resolved(const fs::path& target) {
  std::error_code error;
  return fs::is_symlink(target, error) ? fs::weakly_canonical(target) : target;
}

[[noreturn]] void fail(const fs::path& target, const std::string& reason) {
  throw std::runtime_error(fmt::format("Can't write {}: {}", target.string(), reason));
}

} // namespace

PendingFile::PendingFile(const fs::path& target) : m_target(resolved(target)) {
  static std::atomic<unsigned> counter = 0;
  if (m_target.filename().empty()) fail(m_target, "that is no file name");
  const fs::path folder = m_target.has_parent_path() ? m_target.parent_path() : fs::path(".");
  std::error_code error;
  if (!fs::is_directory(folder, error)) fail(m_target, fmt::format("there is no folder {}", folder.string()));
  if (fs::exists(m_target, error) && !fs::is_regular_file(m_target, error)) fail(m_target, "it is not a regular file");
  for (;;) {
    m_path = folder / fmt::format(".kelvaris-{}-{}.part", ::getpid(), counter++);
    const int file = ::open(m_path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
    if (file >= 0) {
      ::close(file);
      return;
    }
    if (errno != EEXIST) fail(m_target, std::strerror(errno));
  }
}

PendingFile::PendingFile(PendingFile&& other) noexcept
    : m_target(std::move(other.m_target)), m_path(std::move(other.m_path)) {
  other.m_path.clear();
}

PendingFile::~PendingFile() {
  std::error_code error;
  if (!m_path.empty()) fs::remove(m_path, error);
}

void PendingFile::commit() {
  const int file = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool synced = file >= 0 && ::fsync(file) == 0;
  const int reason = errno;
  if (file >= 0) ::close(file);
  if (!synced) fail(m_target, std::strerror(reason));
  if (::rename(m_path.c_str(), m_target.c_str()) != 0) fail(m_target, std::strerror(errno));
  m_path.clear();
}

} // namespace Kelvaris
