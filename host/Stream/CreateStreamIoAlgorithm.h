#pragma once

#include "Lib/Data.h"
#include "Stream/StreamIoAlgorithm.h"

#include <memory>

namespace Kelvaris {

/// Makes streams of the class T, which has a constructor without arguments. The flags: whether new streams are opened
/// and, once open, started, unless the settings say otherwise.
template <typename T, bool kAutoOpen, bool kAutoStart> class CreateStreamIoAlgorithm : public StreamIoAlgorithm {
public:
  CreateStreamIoAlgorithm() : StreamIoAlgorithm(kAutoOpen, kAutoStart) {}

  /// For no data at all. With `algorithm` not null, the caller gets a new algorithm; false leaves it alone.
  static bool createCompatible(const DataList& data, Algorithm** algorithm) {
    if (!data.empty()) return false;
    if (algorithm) *algorithm = std::make_unique<CreateStreamIoAlgorithm>().release();
    return true;
  }

protected:
  std::unique_ptr<Stream> makeStream() const override { return std::make_unique<T>(); }
};

} // namespace Kelvaris
