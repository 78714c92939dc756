#include "Lib/SampleFile.h"

#include "Lib/SampleFileFormats.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace Kelvaris {
namespace {

struct TypeName {
  const char* name;
  SampleType type;
};

constexpr TypeName kTypeNames[] = {
    {"int8", SampleType::Int8},     {"uint8", SampleType::UInt8},    {"int16", SampleType::Int16},
    {"uint16", SampleType::UInt16}, {"int32", SampleType::Int32},    {"uint32", SampleType::UInt32},
    {"int64", SampleType::Int64},   {"uint64", SampleType::UInt64},  {"float", SampleType::Float},
    {"double", SampleType::Double}, {"short", SampleType::Int16},    {"single", SampleType::Float},
    {"float32", SampleType::Float}, {"float64", SampleType::Double},
};

const TypeName* findType(const std::string& name) {
  const auto* found = std::find_if(std::begin(kTypeNames), std::end(kTypeNames),
                                   [&](const TypeName& entry) { return name == entry.name; });
  return found == std::end(kTypeNames) ? nullptr : found;
}

std::string listText(const std::vector<SampleFile::Variable>& variables) {
  // A foreign HDF5 file may hold thousands of datasets.
  constexpr std::size_t kLongest = 40;
  if (variables.empty()) return "It holds no variables";
  std::string text = "It holds";
  for (std::size_t i = 0; i < std::min(variables.size(), kLongest); ++i)
    text += fmt::format("\n  {}  {} {}", variables[i].name, variables[i].type, shapeText(variables[i].shape));
  if (variables.size() > kLongest) text += fmt::format("\n  and {} more", variables.size() - kLongest);
  return text;
}

bool isSamples(const SampleFile::Variable& variable) {
  return findType(variable.type) &&
         std::any_of(variable.shape.begin(), variable.shape.end(), [](std::size_t extent) { return extent > 1; });
}

} // namespace

SampleType sampleTypeFromName(const std::string& name) {
  if (const TypeName* found = findType(name)) return found->type;
  throw std::invalid_argument(fmt::format("\"{}\" is no sample type; there are int8, uint8, int16, uint16, int32, "
                                          "uint32, int64, uint64, float and double",
                                          name));
}

std::unique_ptr<SampleFile> SampleFile::open(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error))
    throw std::runtime_error(fmt::format("There is no file {}", path.string()));
  std::ifstream stream(path, std::ios::binary);
  std::string head(128, '\0');
  stream.read(head.data(), static_cast<std::streamsize>(head.size()));
  if (stream.bad() || (!stream && !stream.eof()))
    throw std::runtime_error(fmt::format("{} can't be read", path.string()));
  head.resize(static_cast<std::size_t>(stream.gcount()));
  const std::string_view view = head;

  if (view.starts_with("\x93NUMPY")) return openNumpyFile(path);
  // Version 7.3 is an HDF5 file behind a MATLAB header.
  if (view.starts_with("MATLAB 7.3")) return openHdf5SampleFile(path, true);
  if (view.size() == 128 && (view.ends_with("IM") || view.ends_with("MI"))) return openMatlabFile(path);
  if (isHdf5File(path)) return openHdf5SampleFile(path, false);
  throw std::runtime_error(fmt::format("{} is no HDF5, MATLAB (5 to 7.3) or NumPy file; raw binary samples need their "
                                       "shape and type",
                                       path.string()));
}

std::unique_ptr<SampleArray> SampleFile::array(const std::string& name) const {
  const std::vector<Variable> all = variables();
  const Variable* chosen = nullptr;
  if (name.empty()) {
    for (const Variable& variable : all)
      if (isSamples(variable)) {
        if (chosen) fail("it holds several variables, name one. " + listText(all));
        chosen = &variable;
      }
    if (!chosen) fail("it has no array of numbers. " + listText(all));
  } else {
    for (const Variable& variable : all)
      if (variable.name == name || variable.name == "/" + name) chosen = &variable;
    if (!chosen) fail(fmt::format("it has no variable \"{}\". {}", name, listText(all)));
  }
  const TypeName* type = findType(chosen->type);
  if (!type)
    fail(fmt::format("\"{}\" is {} {}, expected an array of real numbers. {}", chosen->name, chosen->type,
                     shapeText(chosen->shape), listText(all)));
  return openArray(*chosen, type->type);
}

void SampleFile::fail(const std::string& what) const {
  throw std::runtime_error(fmt::format("{}: {}", m_path.string(), what));
}

} // namespace Kelvaris
