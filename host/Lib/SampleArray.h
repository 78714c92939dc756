#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Kelvaris {

/// Number types of sample files; images have fewer.
enum class SampleType { Int8, UInt8, Int16, UInt16, Int32, UInt32, Int64, UInt64, Float, Double };

/// For example "int16".
const char* sampleTypeName(SampleType type);
std::size_t sampleBytes(SampleType type);

/// Calls `f.template operator()<T>()` with the type of such samples in memory and returns its result.
template <typename F> decltype(auto) dispatchSampleType(SampleType type, F&& f) {
  switch (type) {
  case SampleType::Int8:
    return f.template operator()<std::int8_t>();
  case SampleType::UInt8:
    return f.template operator()<std::uint8_t>();
  case SampleType::Int16:
    return f.template operator()<std::int16_t>();
  case SampleType::UInt16:
    return f.template operator()<std::uint16_t>();
  case SampleType::Int32:
    return f.template operator()<std::int32_t>();
  case SampleType::UInt32:
    return f.template operator()<std::uint32_t>();
  case SampleType::Int64:
    return f.template operator()<std::int64_t>();
  case SampleType::UInt64:
    return f.template operator()<std::uint64_t>();
  case SampleType::Float:
    return f.template operator()<float>();
  case SampleType::Double:
    break;
  }
  return f.template operator()<double>();
}

/// An array of real samples with any number of indices, read box by box. Its shape is the one that the file's own tools
/// show: size(x) for MATLAB, x.shape for NumPy, the dataspace for HDF5.
///
///     MATLAB  (fastTime, channels)   first index fastest    x(1,1) x(2,1) x(3,1) ... x(1,2)
///     NumPy   (channels, fastTime)   last index fastest     x[0,0] x[0,1] x[0,2] ... x[1,0]
class SampleArray {
public:
  using Extents = std::vector<std::size_t>;

  SampleArray(SampleType type, Extents shape, bool firstIndexFastest);
  virtual ~SampleArray() = default;
  SampleArray(const SampleArray&) = delete;
  SampleArray& operator=(const SampleArray&) = delete;

  SampleType type() const { return m_type; }
  const Extents& shape() const { return m_shape; }
  bool firstIndexFastest() const { return m_firstIndexFastest; }
  /// Samples in all.
  std::size_t size() const;

  /// The box of `count` samples from index `start` on, in the array's own storage order and number type, native byte
  /// order. Throws std::out_of_range if the box leaves the array, std::runtime_error if the file can't be read.
  std::vector<std::byte> read(const Extents& start, const Extents& count) const;
  /// The whole array as doubles.
  std::vector<double> readAll() const;

protected:
  /// As read(); the box has been checked and isn't empty, and `samples` has room for it.
  virtual void readBox(const Extents& start, const Extents& count, std::byte* samples) const = 0;

private:
  SampleType m_type;
  Extents m_shape;
  bool m_firstIndexFastest;
};

/// An array that lies in storage without gaps: reads become runs of neighbouring samples.
class ContiguousSampleArray : public SampleArray {
public:
  using SampleArray::SampleArray;

protected:
  void readBox(const Extents& start, const Extents& count, std::byte* samples) const override;
  /// `count` samples from the linear index `first` on.
  virtual void readRun(std::size_t first, std::size_t count, std::byte* samples) const = 0;
};

/// "(334, 128, 32)".
std::string shapeText(const SampleArray::Extents& shape);

/// Samples of that shape and type in bytes. Throws std::length_error beyond the address space.
std::size_t shapeBytes(const SampleArray::Extents& shape, SampleType type);

} // namespace Kelvaris
