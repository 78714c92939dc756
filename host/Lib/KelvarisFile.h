#pragma once

#include "Lib/SharedImageSet.h"

#include <filesystem>
#include <memory>

namespace Kelvaris {

/// Image sets as `.kvx` files: HDF5 with one dataset an image, described in docs/formats.md. Readers and writers go
/// image by image, so that a file may be larger than the memory. All errors are std::runtime_error with the file (and
/// the image) in the message; std::bad_alloc where an image doesn't fit into memory.
class KelvarisFile {
public:
  class Reader;
  class Writer;

  static void save(const std::filesystem::path& path, const SharedImageSet& set);
  static std::unique_ptr<SharedImageSet> load(const std::filesystem::path& path);
};

/// Opens a file and hands out its images one at a time. Nothing is kept of an image once it has been handed out.
class KelvarisFile::Reader {
public:
  explicit Reader(const std::filesystem::path& path);
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  /// Images in the file.
  int size() const;
  /// The set-wide state (components, properties, modality) without images.
  const SharedImageSet& set() const;

  /// `index` from 0 to size() - 1; std::out_of_range else.
  ImageDescriptor descriptor(int index) const;
  double timestamp(int index) const; ///< in ms
  DataComponentList components(int index) const;
  /// Null if no pixel is marked invalid, or, with an error in the log, if what is stored makes no mask.
  std::shared_ptr<const Mask> mask(int index) const;
  std::shared_ptr<SharedImage> image(int index) const;

private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

/// Writes a file image by image, under a temporary name until finish(). A writer that is destroyed without finish()
/// leaves nothing behind; after an error it can only be destroyed.
class KelvarisFile::Writer {
public:
  explicit Writer(const std::filesystem::path& path);
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  void append(const SharedImage& image, const DataComponentList& components, double timestamp);
  /// Writes the set-wide state of `set` (its images are not looked at) and closes the file, which is complete then but
  /// not yet under its name.
  void close(const SharedImageSet& set);
  /// Gives the closed file its name, replacing a file that is there.
  void finish();

private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

} // namespace Kelvaris
