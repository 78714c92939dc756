#include "Lib/SampleFileFormats.h"

#include "Lib/Hdf5.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <optional>

namespace Kelvaris {
namespace {

using Hdf5::Handle;

std::optional<SampleType> sampleType(hid_t type) {
  const std::size_t bytes = H5Tget_size(type);
  const auto pick = [&](SampleType one, SampleType two, SampleType four,
                        SampleType eight) -> std::optional<SampleType> {
    switch (bytes) {
    case 1:
      return one;
    case 2:
      return two;
    case 4:
      return four;
    case 8:
      return eight;
    default:
      return std::nullopt;
    }
  };
  switch (H5Tget_class(type)) {
  case H5T_INTEGER:
    return H5Tget_sign(type) == H5T_SGN_NONE
               ? pick(SampleType::UInt8, SampleType::UInt16, SampleType::UInt32, SampleType::UInt64)
               : pick(SampleType::Int8, SampleType::Int16, SampleType::Int32, SampleType::Int64);
  case H5T_FLOAT: // halves become floats
    return pick(SampleType::Float, SampleType::Float, SampleType::Float, SampleType::Double);
  default:
    return std::nullopt;
  }
}

hid_t nativeType(SampleType type) {
  switch (type) {
  case SampleType::Int8:
    return H5T_NATIVE_INT8;
  case SampleType::UInt8:
    return H5T_NATIVE_UINT8;
  case SampleType::Int16:
    return H5T_NATIVE_INT16;
  case SampleType::UInt16:
    return H5T_NATIVE_UINT16;
  case SampleType::Int32:
    return H5T_NATIVE_INT32;
  case SampleType::UInt32:
    return H5T_NATIVE_UINT32;
  case SampleType::Int64:
    return H5T_NATIVE_INT64;
  case SampleType::UInt64:
    return H5T_NATIVE_UINT64;
  case SampleType::Float:
    return H5T_NATIVE_FLOAT;
  case SampleType::Double:
    break;
  }
  return H5T_NATIVE_DOUBLE;
}

std::string typeText(hid_t type) {
  if (const auto number = sampleType(type)) return sampleTypeName(*number);
  switch (H5Tget_class(type)) {
  case H5T_COMPOUND:
    // Complex numbers are pairs in all common writers.
    return H5Tget_nmembers(type) == 2 ? "complex or compound" : "compound";
  case H5T_STRING:
    return "text";
  case H5T_REFERENCE:
    return "cell or reference";
  default:
    return "no number";
  }
}

class Hdf5Array : public SampleArray {
public:
  Hdf5Array(Handle dataset, std::string name, SampleType type, Extents shape, bool reversed)
      : SampleArray(type, std::move(shape), reversed), m_dataset(std::move(dataset)), m_name(std::move(name)) {}

protected:
  void readBox(const Extents& start, const Extents& count, std::byte* samples) const override {
    const Hdf5::QuietErrors quiet;
    std::vector<hsize_t> first(start.begin(), start.end()), extent(count.begin(), count.end());
    if (firstIndexFastest()) {
      std::reverse(first.begin(), first.end());
      std::reverse(extent.begin(), extent.end());
    }
    const std::string action = fmt::format("read \"{}\"", m_name);
    const Handle space = Hdf5::checked(Handle(H5Dget_space(m_dataset), H5Sclose), action);
    const Handle memory = Hdf5::checked(
        Handle(H5Screate_simple(static_cast<int>(extent.size()), extent.data(), nullptr), H5Sclose), action);
    if (!first.empty())
      Hdf5::check(H5Sselect_hyperslab(space, H5S_SELECT_SET, first.data(), nullptr, extent.data(), nullptr), action);
    Hdf5::check(H5Dread(m_dataset, nativeType(type()), memory, space, H5P_DEFAULT, samples), action);
  }

private:
  Handle m_dataset; // keeps the file open
  std::string m_name;
};

class Hdf5SampleFile : public SampleFile {
public:
  Hdf5SampleFile(const std::filesystem::path& path, bool matlab)
      : SampleFile(path), m_matlab(matlab), m_file(openQuietly(path)) {
    const Hdf5::QuietErrors quiet;
    Hdf5::check(H5Ovisit2(m_file, H5_INDEX_NAME, H5_ITER_NATIVE, visit, this, H5O_INFO_BASIC), "list " + path.string());
  }

  std::vector<Variable> variables() const override { return m_variables; }

protected:
  std::unique_ptr<SampleArray> openArray(const Variable& variable, SampleType type) const override {
    const Hdf5::QuietErrors quiet;
    std::string name = variable.name;
    if (m_matlab) std::replace(name.begin(), name.end(), '.', '/');
    Handle dataset = Hdf5::checked(Handle(H5Dopen2(m_file, name.c_str(), H5P_DEFAULT), H5Dclose),
                                   fmt::format("open \"{}\" in {}", name, path().string()));
    Hdf5::checkStorage(dataset, shapeBytes(variable.shape, type));
    return std::make_unique<Hdf5Array>(std::move(dataset), variable.name, type, variable.shape, m_matlab);
  }

private:
  static Handle openQuietly(const std::filesystem::path& path) {
    const Hdf5::QuietErrors quiet;
    return Hdf5::openFile(path.string());
  }

  static herr_t visit(hid_t root, const char* name, const H5O_info_t* info, void* self) {
    if (info->type != H5O_TYPE_DATASET) return 0;
    try {
      static_cast<Hdf5SampleFile*>(self)->list(root, name);
      return 0;
    } catch (const std::exception&) { // must not pass through C code
      return -1;
    }
  }

  void list(hid_t root, const std::string& name) {
    if (m_matlab && name.starts_with("#")) return; // the targets of MATLAB's references
    const Handle dataset(H5Dopen2(root, name.c_str(), H5P_DEFAULT), H5Dclose);
    const Handle type(dataset.isValid() ? H5Dget_type(dataset) : H5I_INVALID_HID, H5Tclose);
    const Handle space(dataset.isValid() ? H5Dget_space(dataset) : H5I_INVALID_HID, H5Sclose);
    if (!type.isValid() || !space.isValid()) return;
    const std::vector<hsize_t> extents = Hdf5::extent(space);
    Variable variable{m_matlab ? name : "/" + name, typeText(type), {extents.begin(), extents.end()}};
    if (m_matlab) {
      std::replace(variable.name.begin(), variable.name.end(), '/', '.');
      std::reverse(variable.shape.begin(), variable.shape.end());
      // Characters are stored as numbers.
      if (Hdf5::hasAttribute(dataset, "MATLAB_class") && Hdf5::readText(dataset, "MATLAB_class") == "char")
        variable.type = "char";
    }
    m_variables.push_back(std::move(variable));
  }

  bool m_matlab;
  Handle m_file;
  std::vector<Variable> m_variables;
};

} // namespace

bool isHdf5File(const std::filesystem::path& path) {
  const Hdf5::QuietErrors quiet;
  return H5Fis_hdf5(path.c_str()) > 0;
}

std::unique_ptr<SampleFile> openHdf5SampleFile(const std::filesystem::path& path, bool matlab) {
  return std::make_unique<Hdf5SampleFile>(path, matlab);
}

} // namespace Kelvaris
