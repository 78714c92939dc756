#pragma once

#include "Lib/SharedImageSet.h"
#include "Stream/Stream.h"

#include <memory>
#include <string>

namespace Kelvaris {

/// An emission of images, with the components and timestamps that belong to them.
class ImageStreamData : public StreamData {
public:
  explicit ImageStreamData(std::shared_ptr<const SharedImageSet> images);

  /// Never null.
  const std::shared_ptr<const SharedImageSet>& images() const { return m_images; }
  /// The number of images.
  int size() const { return m_images->size(); }
  /// Of a stream of such emissions: ImageStreamKind, VolumeStreamKind, or UnknownKind where there are no images.
  Data::Kind streamKind() const;
  /// True if an image exists as a texture alone: who reads it needs OpenGL, on another thread after the producer's
  /// work.
  bool containsGlImage() const;
  /// A set of one's own with the same images, shared, their components and timestamps.
  std::shared_ptr<const SharedImageSet> shallowCloneToSharedImageSet() const { return m_images->clone(4); }

private:
  std::shared_ptr<const SharedImageSet> m_images;
};

/// A stream whose emissions are ImageStreamData. New ones are of the kind ImageStreamKind. Without overrides it makes
/// no data itself: others emit on its signal.
class ImageStream : public Stream {
public:
  explicit ImageStream(std::string name);
  ~ImageStream() override;

  bool workerThreadRequiresOpenGl() const override { return true; }
  /// True if row 0 of the images is the top.
  virtual bool topDown() const { return true; }
  /// Images an emission.
  virtual int size() const { return 1; }
};

} // namespace Kelvaris
