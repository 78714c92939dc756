#pragma once

#include "Core/ByteBuffer.h"

#include <optional>
#include <string>
#include <string_view>

/// Text and data that libraries carry inside them, reached under "<repository>/<resource>". All functions may be called
/// from any thread.
namespace Kelvaris::Resource {

/// Named resources of one library. Its operations are called from any thread.
class Repository {
public:
  virtual ~Repository() = default;

  virtual std::string name() const = 0;
  /// Exact and case-sensitive.
  virtual bool contains(const std::string_view& name) const = 0;
  /// The plain content in a buffer of its own; nothing if there is no such resource or it can't be read.
  virtual std::optional<ByteBuffer> query(const std::string_view& name) const = 0;
};

/// Makes the repository known. It stays the caller's, who calls removeRepository before it ends. Adding it twice
/// changes nothing.
void addRepository(const Repository* repository);
/// Forgets the repository and returns once no query uses it any more. Unknown repositories are ignored.
void removeRepository(const Repository* repository);

/// The content of "<repository>/<resource>"; the repository's name ends at the first slash. Nothing if either is
/// unknown.
std::optional<ByteBuffer> query(std::string_view path);
/// The same with both names apart.
std::optional<ByteBuffer> query(std::string_view repository, std::string_view name);

} // namespace Kelvaris::Resource
