#include "Lib/SampleFileFormats.h"

#include <fmt/format.h>
#include <matio.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <new>
#include <optional>
#include <vector>

namespace Kelvaris {
namespace {

struct CloseFile {
  void operator()(mat_t* file) const { Mat_Close(file); }
};
struct FreeVariable {
  void operator()(matvar_t* variable) const { Mat_VarFree(variable); }
};
using FilePointer = std::unique_ptr<mat_t, CloseFile>;
using VariablePointer = std::unique_ptr<matvar_t, FreeVariable>;

std::optional<SampleType> sampleType(matio_classes type) {
  switch (type) {
  case MAT_C_INT8:
    return SampleType::Int8;
  case MAT_C_UINT8:
    return SampleType::UInt8;
  case MAT_C_INT16:
    return SampleType::Int16;
  case MAT_C_UINT16:
    return SampleType::UInt16;
  case MAT_C_INT32:
    return SampleType::Int32;
  case MAT_C_UINT32:
    return SampleType::UInt32;
  case MAT_C_INT64:
    return SampleType::Int64;
  case MAT_C_UINT64:
    return SampleType::UInt64;
  case MAT_C_SINGLE:
    return SampleType::Float;
  case MAT_C_DOUBLE:
    return SampleType::Double;
  default:
    return std::nullopt;
  }
}

std::string typeText(const matvar_t& variable) {
  if (const auto type = sampleType(variable.class_type))
    return (variable.isComplex ? "complex " : "") + std::string(sampleTypeName(*type));
  switch (variable.class_type) {
  case MAT_C_STRUCT:
    return "struct";
  case MAT_C_CELL:
    return "cell";
  case MAT_C_CHAR:
    return "char";
  case MAT_C_SPARSE:
    return "sparse";
  default:
    return "object";
  }
}

/// A variable in memory; keeps all that was read with it.
class MatlabArray : public ContiguousSampleArray {
public:
  MatlabArray(SampleType type, Extents shape, VariablePointer owner, const matvar_t* variable)
      : ContiguousSampleArray(type, std::move(shape), true), m_owner(std::move(owner)), m_variable(variable) {}

protected:
  void readRun(std::size_t first, std::size_t count, std::byte* samples) const override {
    const std::size_t width = sampleBytes(type());
    std::memcpy(samples, static_cast<const std::byte*>(m_variable->data) + first * width, count * width);
  }

private:
  VariablePointer m_owner;
  const matvar_t* m_variable;
};

class MatlabFile : public SampleFile {
public:
  explicit MatlabFile(const std::filesystem::path& path) : SampleFile(path) {
    checkIntact();
    m_file.reset(Mat_Open(path.c_str(), MAT_ACC_RDONLY));
    if (!m_file) fail("the MATLAB file can't be read");
    std::size_t count = 0;
    char** names = Mat_GetDir(m_file.get(), &count);
    for (std::size_t i = 0; i < count; ++i) {
      if (!names[i]) continue;
      const VariablePointer variable(Mat_VarReadInfo(m_file.get(), names[i]));
      if (variable) list(*variable, names[i], 0);
    }
    if (m_variables.empty()) fail("the MATLAB file holds no variables");
  }

  std::vector<Variable> variables() const override { return m_variables; }

protected:
  std::unique_ptr<SampleArray> openArray(const Variable& variable, SampleType type) const override {
    const std::string top = variable.name.substr(0, variable.name.find('.'));
    VariablePointer owner(Mat_VarRead(m_file.get(), top.c_str()));
    const matvar_t* found = owner.get();
    for (std::size_t at = top.size(); found && at < variable.name.size();) {
      const auto next = std::min(variable.name.find('.', at + 1), variable.name.size());
      const std::string field = variable.name.substr(at + 1, next - at - 1);
      found = Mat_VarGetStructFieldByName(const_cast<matvar_t*>(found), field.c_str(), 0);
      at = next;
    }
    if (!found || !found->data || found->nbytes != shapeBytes(variable.shape, type))
      fail(fmt::format("\"{}\" can't be read, the file is damaged", variable.name));
    return std::make_unique<MatlabArray>(type, variable.shape, std::move(owner), found);
  }

private:
  /// The library trusts what it reads: it fills a variable that the file cuts short with whatever memory holds, and may
  /// crash in a damaged compressed one. So the file is looked through before: behind the header of 128 bytes stand
  /// elements, each with its type and its length in a tag of twice four bytes; compressed ones carry a checksum.
  void checkIntact() const {
    constexpr std::uint32_t kMatrix = 14, kCompressed = 15;
    const std::uintmax_t fileBytes = std::filesystem::file_size(path());
    std::ifstream stream(path(), std::ios::binary);
    char head[4] = {}; // version and byte order
    stream.seekg(124).read(head, 4);
    const bool little = head[2] == 'I';
    const auto native = [&](std::uint32_t v) { return little ? v : __builtin_bswap32(v); };
    if (head[little ? 1 : 0] != 1 || head[little ? 0 : 1] != 0) fail("the MATLAB file is of an unknown version");
    for (std::uintmax_t at = 128; at < fileBytes;) {
      std::uint32_t tag[2] = {};
      stream.read(reinterpret_cast<char*>(tag), sizeof tag);
      const std::uint32_t type = native(tag[0]), bytes = native(tag[1]);
      const std::uintmax_t end = at + sizeof tag + bytes;
      if (!stream || end > fileBytes)
        fail(fmt::format("the MATLAB file is truncated: it has {} bytes, its contents end at byte {}", fileBytes, end));
      if ((type != kMatrix && type != kCompressed) || (type == kCompressed && !isIntact(stream, bytes)))
        fail(fmt::format("the MATLAB file is damaged in the variable at byte {}", at));
      stream.seekg(static_cast<std::streamoff>(end));
      at = end;
    }
  }

  /// Inflates `bytes` bytes, which end with their checksum, and drops the result.
  static bool isIntact(std::istream& stream, std::size_t bytes) {
    std::vector<unsigned char> in(1 << 16), out(1 << 18);
    z_stream inflater{};
    if (inflateInit(&inflater) != Z_OK) throw std::bad_alloc();
    int status = Z_OK;
    while (status == Z_OK && bytes > 0) {
      const std::size_t part = std::min(bytes, in.size());
      stream.read(reinterpret_cast<char*>(in.data()), static_cast<std::streamsize>(part));
      bytes -= part;
      inflater.next_in = in.data();
      inflater.avail_in = static_cast<uInt>(part);
      do {
        inflater.next_out = out.data();
        inflater.avail_out = static_cast<uInt>(out.size());
        status = inflate(&inflater, Z_NO_FLUSH);
      } while (status == Z_OK && (inflater.avail_in > 0 || inflater.avail_out == 0));
      if (status == Z_BUF_ERROR) status = Z_OK; // wants more input
    }
    inflateEnd(&inflater);
    return status == Z_STREAM_END;
  }

  void list(const matvar_t& variable, const std::string& name, int depth) {
    constexpr int kDeepest = 4;
    Variable entry{name, typeText(variable), {}};
    std::size_t elements = 1;
    for (int i = 0; i < variable.rank; ++i) {
      entry.shape.push_back(variable.dims[i]);
      elements *= variable.dims[i];
    }
    m_variables.push_back(std::move(entry));
    if (variable.class_type != MAT_C_STRUCT || elements != 1 || depth == kDeepest) return;
    auto* record = const_cast<matvar_t*>(&variable); // the library asks through pointers to non-const
    char* const* fields = Mat_VarGetStructFieldnames(record);
    for (unsigned i = 0; i < Mat_VarGetNumberOfFields(record); ++i)
      if (const matvar_t* field = Mat_VarGetStructFieldByIndex(record, i, 0))
        list(*field, name + "." + fields[i], depth + 1);
  }

  FilePointer m_file;
  std::vector<Variable> m_variables;
};

} // namespace

std::unique_ptr<SampleFile> openMatlabFile(const std::filesystem::path& path) {
  return std::make_unique<MatlabFile>(path);
}

} // namespace Kelvaris
