#include "Lib/SampleArray.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <stdexcept>

namespace Kelvaris {

const char* sampleTypeName(SampleType type) {
  static constexpr const char* kNames[] = {"int8",   "uint8", "int16",  "uint16", "int32",
                                           "uint32", "int64", "uint64", "float",  "double"};
  return kNames[static_cast<std::size_t>(type)];
}

std::size_t sampleBytes(SampleType type) {
  return dispatchSampleType(type, []<typename T>() { return sizeof(T); });
}

std::string shapeText(const SampleArray::Extents& shape) {
  return fmt::format("({})", fmt::join(shape, ", "));
}

std::size_t shapeBytes(const SampleArray::Extents& shape, SampleType type) {
  std::size_t bytes = sampleBytes(type);
  for (const std::size_t extent : shape)
    if (__builtin_mul_overflow(bytes, extent, &bytes) || bytes > PTRDIFF_MAX)
      throw std::length_error(fmt::format("the shape {} is larger than any memory", shapeText(shape)));
  return bytes;
}

SampleArray::SampleArray(SampleType type, Extents shape, bool firstIndexFastest)
    : m_type(type), m_shape(std::move(shape)), m_firstIndexFastest(firstIndexFastest) {
  shapeBytes(m_shape, m_type);
}

std::size_t SampleArray::size() const {
  return std::accumulate(m_shape.begin(), m_shape.end(), std::size_t{1}, std::multiplies<>());
}

std::vector<std::byte> SampleArray::read(const Extents& start, const Extents& count) const {
  bool inside = start.size() == m_shape.size() && count.size() == m_shape.size();
  for (std::size_t i = 0; inside && i < m_shape.size(); ++i)
    inside = start[i] <= m_shape[i] && count[i] <= m_shape[i] - start[i];
  if (!inside)
    throw std::out_of_range(fmt::format("The box of {} samples at {} leaves the array of shape {}", shapeText(count),
                                        shapeText(start), shapeText(m_shape)));
  std::vector<std::byte> samples(shapeBytes(count, m_type));
  if (!samples.empty()) readBox(start, count, samples.data());
  return samples;
}

std::vector<double> SampleArray::readAll() const {
  const std::vector<std::byte> bytes = read(Extents(m_shape.size(), 0), m_shape);
  return dispatchSampleType(m_type, [&]<typename T>() {
    const auto* samples = reinterpret_cast<const T*>(bytes.data());
    std::vector<double> values(size());
    std::transform(samples, samples + values.size(), values.begin(), [](T v) { return static_cast<double>(v); });
    return values;
  });
}

void ContiguousSampleArray::readBox(const Extents& startShown, const Extents& countShown, std::byte* samples) const {
  // Fastest index first from here on.
  Extents extent = shape(), start = startShown, count = countShown;
  if (!firstIndexFastest())
    for (Extents* e : {&extent, &start, &count})
      std::reverse(e->begin(), e->end());

  // The run covers all leading indices that are read in full, and the part of the next one.
  std::size_t run = 1, outer = 0;
  for (bool full = true; full && outer < extent.size(); ++outer) {
    run *= count[outer];
    full = count[outer] == extent[outer];
  }

  const std::size_t bytes = sampleBytes(type());
  Extents index(extent.size(), 0);
  for (;;) {
    std::size_t first = 0;
    for (std::size_t i = extent.size(); i-- > 0;)
      first = first * extent[i] + start[i] + index[i];
    readRun(first, run, samples);
    samples += run * bytes;
    std::size_t i = outer;
    while (i < extent.size() && ++index[i] == count[i])
      index[i++] = 0;
    if (i >= extent.size()) return;
  }
}

} // namespace Kelvaris
