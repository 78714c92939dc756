#include "US/UltrasoundMetadata.h"

#include "Core/Properties.h"

namespace Kelvaris::US {
namespace {

/// Calls `f(key, field)` for every field, in the order in which they are stored.
template <typename Metadata, typename F> void forEachField(Metadata& metadata, F&& f) {
  f("scanMode", metadata.scanMode);
  f("persistence", metadata.persistence);
  f("numColumns", metadata.numColumns);
  f("numRows", metadata.numRows);
  f("depthStart", metadata.depthStart);
  f("depthEnd", metadata.depthEnd);
  f("focalDepth", metadata.focalDepth);
  f("pulseFrequency", metadata.pulseFrequency);
  f("speedOfSound", metadata.speedOfSound);
  f("scanConverted", metadata.scanConverted);
}

} // namespace

bool UltrasoundMetadata::operator==(const UltrasoundMetadata& other) const {
  return scanMode == other.scanMode && persistence == other.persistence && numColumns == other.numColumns &&
         numRows == other.numRows && depthStart == other.depthStart && depthEnd == other.depthEnd &&
         focalDepth == other.focalDepth && pulseFrequency == other.pulseFrequency &&
         speedOfSound == other.speedOfSound && scanConverted == other.scanConverted;
}

void UltrasoundMetadata::configure(const Properties* properties) {
  if (!properties) return;
  UltrasoundMetadata stored = *this;
  bool readable = true;
  forEachField(stored, [&](const char* key, auto& field) {
    if (properties->hasParam(key) && !properties->param(key, field)) readable = false;
  });
  if (readable) *this = stored;
}

void UltrasoundMetadata::configuration(Properties* properties) const {
  if (!properties) return;
  forEachField(*this, [&](const char* key, const auto& field) { properties->setParam(key, field); });
}

} // namespace Kelvaris::US
