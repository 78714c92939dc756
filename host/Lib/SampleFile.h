#pragma once

#include "Lib/SampleArray.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Kelvaris {

/// A file of samples from elsewhere: HDF5, MATLAB version 5 or 7.3, NumPy or raw binary. All errors are
/// std::runtime_error with the file's name in the text.
class SampleFile {
public:
  /// An array in the file. The type is what the file calls it where it is none of SampleType ("complex double",
  /// "cell").
  struct Variable {
    std::string name;
    std::string type;
    SampleArray::Extents shape;
  };

  /// Tells the format by the file's first bytes.
  static std::unique_ptr<SampleFile> open(const std::filesystem::path& path);

  explicit SampleFile(std::filesystem::path path) : m_path(std::move(path)) {}
  virtual ~SampleFile() = default;
  SampleFile(const SampleFile&) = delete;
  SampleFile& operator=(const SampleFile&) = delete;

  virtual std::vector<Variable> variables() const = 0;

  /// The array of that name: "RF", a field of a structure as "exp_data.time_data", an HDF5 dataset as "/group/rf". An
  /// empty name stands for the only variable of more than one sample. An unknown name, complex numbers and anything
  /// that isn't an array of numbers are errors that list what there is. The array may outlive the file.
  std::unique_ptr<SampleArray> array(const std::string& name) const;

  const std::filesystem::path& path() const { return m_path; }

protected:
  /// `variable` is one of variables() and its type a SampleType.
  virtual std::unique_ptr<SampleArray> openArray(const Variable& variable, SampleType type) const = 0;
  [[noreturn]] void fail(const std::string& what) const;

private:
  std::filesystem::path m_path;
};

/// Raw binary samples, little-endian; the file holds the array and nothing else (after `headerBytes`). Without
/// `firstIndexFastest` the last index of the shape runs fastest. Throws std::runtime_error if the file's size doesn't
/// fit.
std::unique_ptr<SampleArray> openRawSamples(const std::filesystem::path& path, SampleType type,
                                            SampleArray::Extents shape, bool firstIndexFastest,
                                            std::size_t headerBytes = 0);

/// The type of a name such as "int16", "single", "float64". Throws std::invalid_argument with the names there are.
SampleType sampleTypeFromName(const std::string& name);

} // namespace Kelvaris
