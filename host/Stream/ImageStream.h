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

private:
  std::shared_ptr<const SharedImageSet> m_images;
};

/// A stream whose emissions are ImageStreamData. New ones are of the kind ImageStreamKind.
class ImageStream : public Stream {
public:
  explicit ImageStream(std::string name);
};

} // namespace Kelvaris
