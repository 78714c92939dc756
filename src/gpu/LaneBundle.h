#pragma once

#include "CUDA/Lanes.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

// Several registers of lanes as one. For source files built by `kelvaris_cpu_variants` only.

namespace Kelvaris::US::GPU {
inline namespace KELVARIS_ARCH {

using CUDA::LaneMask;
using CUDA::Lanes;
namespace native = CUDA::native;

/// n registers of lanes, so that as many chains of multiply-adds run side by side.
template <int n> struct Bundle {
  static constexpr int count = n * Lanes::count;
  Lanes part[n];

  Bundle() = default;
  KELVARIS_KERNEL explicit Bundle(float v) {
    for (Lanes& p : part)
      p = v;
  }
  KELVARIS_KERNEL static Bundle load(const float* values) {
    Bundle result;
    for (std::ptrdiff_t i = 0; i < n; ++i)
      result.part[i] = Lanes::load(values + i * Lanes::count);
    return result;
  }
  KELVARIS_KERNEL static Bundle load(const short* values) {
    Bundle result;
    for (std::ptrdiff_t i = 0; i < n; ++i)
      result.part[i] = native::toFloats(native::loadInts(values + i * Lanes::count));
    return result;
  }
  /// Other integers, converted with rounding to nearest.
  template <typename T> KELVARIS_KERNEL static Bundle load(const T* values) {
    using Values [[gnu::vector_size(sizeof(T) * Lanes::count)]] = T;
    using Ints [[gnu::vector_size(sizeof(int) * Lanes::count)]] = int;
    Bundle result;
    for (std::ptrdiff_t i = 0; i < n; ++i) {
      Values part;
      std::memcpy(&part, values + i * Lanes::count, sizeof part);
      if constexpr (std::is_same_v<T, unsigned int>)
        result.part[i] = __builtin_convertvector(part, native::Floats);
      else
        result.part[i] = native::toFloats(reinterpret_cast<native::Ints>(__builtin_convertvector(part, Ints)));
    }
    return result;
  }

  KELVARIS_KERNEL void store(float* values) const {
    for (std::ptrdiff_t i = 0; i < n; ++i)
      part[i].store(values + i * Lanes::count);
  }
  /// Integral values within the range of int, of which the low bits are kept.
  template <typename T> KELVARIS_KERNEL void store(T* values) const {
    using Values [[gnu::vector_size(sizeof(T) * Lanes::count)]] = T;
    using Ints [[gnu::vector_size(sizeof(int) * Lanes::count)]] = int;
    for (std::ptrdiff_t i = 0; i < n; ++i) {
      const Values converted = __builtin_convertvector(reinterpret_cast<Ints>(native::toInts(part[i].v)), Values);
      std::memcpy(values + i * Lanes::count, &converted, sizeof converted);
    }
  }

  friend KELVARIS_KERNEL Bundle operator*(const Bundle& a, const Bundle& b) {
    Bundle result;
    for (int i = 0; i < n; ++i)
      result.part[i] = a.part[i] * b.part[i];
    return result;
  }
  friend KELVARIS_KERNEL Bundle multiplyAdd(const Bundle& a, const Bundle& b, const Bundle& c) {
    Bundle result;
    for (int i = 0; i < n; ++i)
      result.part[i] = multiplyAdd(a.part[i], b.part[i], c.part[i]);
    return result;
  }
};

/// Lane numbers from `first` to `last` of a bundle take the values of `yes`.
template <int n> KELVARIS_KERNEL Bundle<n> selectLanes(int first, int last, const Bundle<n>& yes, const Bundle<n>& no) {
  Bundle<n> result;
  for (int i = 0; i < n; ++i) {
    float numbers[Lanes::count];
    for (int lane = 0; lane < Lanes::count; ++lane)
      numbers[lane] = static_cast<float>(i * Lanes::count + lane);
    const Lanes number = Lanes::load(numbers);
    const LaneMask inside = number >= Lanes(static_cast<float>(first)) && number <= Lanes(static_cast<float>(last));
    result.part[i] = select(inside, yes.part[i], no.part[i]);
  }
  return result;
}

} // namespace KELVARIS_ARCH
} // namespace Kelvaris::US::GPU
