#include "Lib/Hdf5.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>

#include <unistd.h>

namespace Kelvaris::Hdf5 {
namespace {

/// Longest text of fixed length that is read.
constexpr std::size_t kMaxFixedText = std::size_t(16) << 20;

/// After damaged files HDF5 fails to take itself down at the end of the process, and says so. It has nothing to do
/// there: files are closed by those who opened them.
[[maybe_unused]] const herr_t g_noExitHandler = H5dont_atexit();

herr_t keepInnermost(unsigned n, const H5E_error2_t* error, void* data) {
  if (n == 0 && error->desc) *static_cast<std::string*>(data) = error->desc;
  return 0;
}

Handle openAttribute(hid_t object, const char* name) {
  if (!hasAttribute(object, name)) throw std::runtime_error(fmt::format("The attribute \"{}\" is missing", name));
  return checked(Handle(H5Aopen(object, name, H5P_DEFAULT), H5Aclose), fmt::format("open the attribute \"{}\"", name));
}

/// Throws unless the attribute holds `count` values.
void checkCount(hid_t attribute, const char* name, std::size_t count) {
  const Handle space = checked(Handle(H5Aget_space(attribute), H5Sclose), "read the size of an attribute");
  const hssize_t points = H5Sget_simple_extent_npoints(space);
  if (points != static_cast<hssize_t>(count))
    throw std::runtime_error(fmt::format("The attribute \"{}\" holds {} values, expected {}", name, points, count));
}

H5T_class_t classOf(hid_t attribute, Handle& type) {
  type = checked(Handle(H5Aget_type(attribute), H5Tclose), "read the type of an attribute");
  return H5Tget_class(type);
}

/// Where a text of variable length lies: object `index` of the global heap collection at `address`.
struct TextReference {
  static constexpr std::size_t kBytes = 16;
  std::uint64_t length, address, index;
};

std::uint64_t littleEndian(const unsigned char* bytes, int count) {
  std::uint64_t value = 0;
  for (int i = count; i-- > 0;)
    value = value << 8 | bytes[i];
  return value;
}

constexpr const char* kReferenceTag = "kelvaris text reference";

/// Hands the reference over as it stands in the file, in place of the text.
herr_t keepReference(hid_t source, hid_t target, H5T_cdata_t* conversion, size_t, size_t, size_t, void*, void*, hid_t) {
  if (conversion->command != H5T_CONV_INIT) return 0;
  char* tag = H5Tget_tag(target);
  const bool fits = tag && std::strcmp(tag, kReferenceTag) == 0 && H5Tget_size(source) == TextReference::kBytes;
  H5free_memory(tag);
  return fits ? 0 : -1;
}

TextReference readReference(hid_t attribute, hid_t fileType, const std::string& action) {
  const Handle type = checked(Handle(H5Tcreate(H5T_OPAQUE, TextReference::kBytes), H5Tclose), action);
  check(H5Tset_tag(type, kReferenceTag), action);
  // For all texts of variable length; HDF5 keeps each registration until the process ends.
  static const bool registered = [&] {
    check(H5Tregister(H5T_PERS_SOFT, "kelvaris-reference", fileType, type, keepReference), action);
    return true;
  }();
  static_cast<void>(registered);
  unsigned char bytes[TextReference::kBytes];
  check(H5Aread(attribute, type, bytes), action);
  return {littleEndian(bytes, 4), littleEndian(bytes + 4, 8), littleEndian(bytes + 12, 4)};
}

/// The bytes of an open file.
class FileBytes {
public:
  explicit FileBytes(hid_t object) {
    const Handle file = checked(Handle(H5Iget_file_id(object), H5Fclose), "find the file of an attribute");
    const Handle creation = checked(Handle(H5Fget_create_plist(file), H5Pclose), "read how the file was made");
    std::size_t addressBytes = 0, lengthBytes = 0;
    check(H5Pget_sizes(creation, &addressBytes, &lengthBytes), "read how the file was made");
    check(H5Pget_userblock(creation, &m_begin), "read how the file was made");
    check(H5Fget_filesize(file, &m_end), "read the size of the file");
    void* handle = nullptr;
    check(H5Fget_vfd_handle(file, H5P_DEFAULT, &handle), "reach the file's bytes");
    if (addressBytes != 8 || lengthBytes != 8)
      throw std::runtime_error(fmt::format("The file's addresses have {} bytes, only 8 are known", addressBytes));
    m_file = *static_cast<int*>(handle);
  }

  bool contain(std::uint64_t address, std::uint64_t count) const {
    const std::uint64_t size = m_end - m_begin;
    return address <= size && count <= size - address;
  }

  /// False if they don't lie in the file.
  bool read(std::uint64_t address, std::uint64_t count, void* buffer) const {
    if (!contain(address, count)) return false;
    auto* bytes = static_cast<char*>(buffer);
    for (std::uint64_t done = 0; done < count;) {
      const ssize_t got = pread(m_file, bytes + done, count - done, static_cast<off_t>(m_begin + address + done));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return false;
      done += static_cast<std::uint64_t>(got);
    }
    return true;
  }

private:
  int m_file = -1;
  hsize_t m_begin = 0, m_end = 0;
};

/// Reads a text from its global heap collection. HDF5 itself would read beyond a damaged one, or hang: it is the one
/// structure of the format without a checksum. Layout, little-endian: "GCOL", version 1, 3 bytes reserved, size of the
/// collection (8 bytes); then objects of index (2), reference count (2), 4 bytes reserved, size (8) and their bytes,
/// padded to 8. Object 0 is the free rest. (HDF5 File Format 3.0, III.E)
std::optional<std::string> readFromHeap(const FileBytes& file, const TextReference& reference) {
  constexpr std::uint64_t header = 16;
  unsigned char bytes[header];
  if (!file.read(reference.address, header, bytes) || std::memcmp(bytes, "GCOL\1", 5) != 0) return std::nullopt;
  const std::uint64_t size = littleEndian(bytes + 8, 8);
  if (!file.contain(reference.address, size)) return std::nullopt;
  for (std::uint64_t at = header; at <= size && size - at >= header;) {
    if (!file.read(reference.address + at, header, bytes)) return std::nullopt;
    const std::uint64_t index = littleEndian(bytes, 2), objectSize = littleEndian(bytes + 8, 8);
    at += header;
    if (index == 0 || objectSize > size - at) return std::nullopt;
    if (index == reference.index) {
      if (reference.length > objectSize) return std::nullopt;
      std::string text(reference.length, '\0');
      if (!file.read(reference.address + at, reference.length, text.data())) return std::nullopt;
      return text;
    }
    at += (objectSize + 7) / 8 * 8;
  }
  return std::nullopt;
}

std::string readVariableText(hid_t attribute, hid_t fileType, const char* name) {
  const std::string action = fmt::format("read the attribute \"{}\"", name);
  const TextReference reference = readReference(attribute, fileType, action);
  if (reference.length == 0) return "";
  std::optional<std::string> text = readFromHeap(FileBytes(attribute), reference);
  if (!text) throw std::runtime_error(fmt::format("Can't {}: the file is damaged where its text lies", action));
  text->resize(std::min(text->find('\0'), text->size()));
  return std::move(*text);
}

Handle textType(std::size_t size, H5T_cset_t charset) {
  Handle type = checked(Handle(H5Tcopy(H5T_C_S1), H5Tclose), "make a text type");
  check(H5Tset_size(type, size), "make a text type");
  check(H5Tset_cset(type, charset), "make a text type");
  return type;
}

void writeAttribute(hid_t object, const char* name, hid_t fileType, hid_t memoryType, hid_t space, const void* data) {
  const std::string action = fmt::format("write the attribute \"{}\"", name);
  if (hasAttribute(object, name)) check(H5Adelete(object, name), action);
  const Handle attribute =
      checked(Handle(H5Acreate2(object, name, fileType, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose), action);
  check(H5Awrite(attribute, memoryType, data), action);
}

} // namespace

QuietErrors::QuietErrors() {
  H5Eget_auto2(H5E_DEFAULT, &m_function, &m_data);
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

QuietErrors::~QuietErrors() {
  H5Eset_auto2(H5E_DEFAULT, m_function, m_data);
}

std::string lastError() {
  std::string text;
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, keepInnermost, &text);
  // The texts of system errors carry "error message = '...'" among file descriptors and offsets.
  constexpr std::string_view marker = "error message = '";
  if (const auto at = text.find(marker); at != std::string::npos) {
    const auto begin = at + marker.size();
    text = text.substr(begin, text.find('\'', begin) - begin);
  }
  return text.empty() ? "unknown HDF5 error" : text;
}

Handle checked(Handle handle, const std::string& action) {
  if (!handle.isValid()) throw std::runtime_error(fmt::format("Can't {}: {}", action, lastError()));
  return handle;
}

void check(herr_t status, const std::string& action) {
  if (status < 0) throw std::runtime_error(fmt::format("Can't {}: {}", action, lastError()));
}

Handle fileAccess() {
  const std::string action = "prepare a file";
  Handle access = checked(Handle(H5Pcreate(H5P_FILE_ACCESS), H5Pclose), action);
  H5AC_cache_config_t cache{};
  cache.version = H5AC__CURR_CACHE_CONFIG_VERSION;
  check(H5Pget_mdc_config(access, &cache), action);
  cache.set_initial_size = true;
  cache.initial_size = cache.min_size = cache.max_size = std::size_t(64) << 10;
  cache.incr_mode = H5C_incr__off;
  cache.flash_incr_mode = H5C_flash_incr__off;
  cache.decr_mode = H5C_decr__off;
  check(H5Pset_mdc_config(access, &cache), action);
  check(H5Pset_evict_on_close(access, true), action);
  return access;
}

Handle openFile(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) throw std::runtime_error(fmt::format("There is no file {}", path));
  if (!std::filesystem::is_regular_file(path, error))
    throw std::runtime_error(fmt::format("{} is not a regular file", path));
  const htri_t isHdf5 = H5Fis_hdf5(path.c_str());
  if (isHdf5 == 0) throw std::runtime_error(fmt::format("{} is not an HDF5 file", path));
  return checked(Handle(H5Fopen(path.c_str(), H5F_ACC_RDONLY, fileAccess()), H5Fclose), fmt::format("open {}", path));
}

std::vector<hsize_t> extent(hid_t space) {
  const int rank = H5Sget_simple_extent_ndims(space);
  check(rank, "read an extent");
  std::vector<hsize_t> dimensions(static_cast<std::size_t>(rank));
  check(H5Sget_simple_extent_dims(space, dimensions.data(), nullptr), "read an extent");
  return dimensions;
}

void checkStorage(hid_t dataset, std::size_t bytes) {
  // Deflate shrinks to a thousandth at best; small extents are harmless whatever is behind them.
  constexpr std::size_t harmless = std::size_t(64) << 20, maxRatio = 1100;
  const Handle file = checked(Handle(H5Iget_file_id(dataset), H5Fclose), "find the file of a dataset");
  hsize_t fileSize = 0;
  check(H5Fget_filesize(file, &fileSize), "read the size of the file");
  const std::size_t stored = std::min<std::size_t>(H5Dget_storage_size(dataset), fileSize);
  const std::size_t limit = std::max(harmless, stored * maxRatio);
  if (bytes > limit)
    throw std::runtime_error(
        fmt::format("It declares {} bytes of samples, but the file holds {} for it", bytes, stored));
  const Handle layout = checked(Handle(H5Dget_create_plist(dataset), H5Pclose), "read the layout of a dataset");
  if (H5Pget_layout(layout) != H5D_CHUNKED) return;
  hsize_t chunk[H5S_MAX_RANK] = {};
  const int rank = H5Pget_chunk(layout, H5S_MAX_RANK, chunk);
  check(rank, "read the chunk size of a dataset");
  const Handle type = checked(Handle(H5Dget_type(dataset), H5Tclose), "read the type of a dataset");
  std::size_t chunkBytes = H5Tget_size(type);
  for (int i = 0; i < rank; ++i)
    if (__builtin_mul_overflow(chunkBytes, static_cast<std::size_t>(chunk[i]), &chunkBytes) || chunkBytes > limit)
      throw std::runtime_error("Its chunks are larger than what the file holds");
}

bool hasAttribute(hid_t object, const char* name) {
  const htri_t exists = H5Aexists(object, name);
  check(exists, fmt::format("look for the attribute \"{}\"", name));
  return exists > 0;
}

std::string readText(hid_t object, const char* name) {
  const std::string action = fmt::format("read the attribute \"{}\"", name);
  const Handle attribute = openAttribute(object, name);
  checkCount(attribute, name, 1);
  Handle fileType;
  if (classOf(attribute, fileType) != H5T_STRING)
    throw std::runtime_error(fmt::format("The attribute \"{}\" is not a text", name));
  if (H5Tis_variable_str(fileType) > 0) return readVariableText(attribute, fileType, name);
  const std::size_t size = H5Tget_size(fileType);
  if (size > kMaxFixedText)
    throw std::runtime_error(
        fmt::format("The attribute \"{}\" is a text of {} bytes, at most {} are read", name, size, kMaxFixedText));
  std::string text(size, '\0');
  check(H5Aread(attribute, fileType, text.data()), action);
  text.resize(std::min(text.find('\0'), text.size()));
  if (H5Tget_strpad(fileType) == H5T_STR_SPACEPAD) text.resize(text.find_last_not_of(' ') + 1);
  return text;
}

long long readInteger(hid_t object, const char* name) {
  const Handle attribute = openAttribute(object, name);
  checkCount(attribute, name, 1);
  Handle type;
  const H5T_class_t kind = classOf(attribute, type);
  if (kind != H5T_INTEGER && kind != H5T_ENUM)
    throw std::runtime_error(fmt::format("The attribute \"{}\" is not an integer", name));
  long long value = 0;
  check(H5Aread(attribute, H5T_NATIVE_LLONG, &value), fmt::format("read the attribute \"{}\"", name));
  return value;
}

std::vector<double> readDoubles(hid_t object, const char* name, std::size_t count) {
  const Handle attribute = openAttribute(object, name);
  checkCount(attribute, name, count);
  Handle type;
  const H5T_class_t kind = classOf(attribute, type);
  if (kind != H5T_INTEGER && kind != H5T_FLOAT)
    throw std::runtime_error(fmt::format("The attribute \"{}\" holds no numbers", name));
  std::vector<double> values(count);
  check(H5Aread(attribute, H5T_NATIVE_DOUBLE, values.data()), fmt::format("read the attribute \"{}\"", name));
  return values;
}

void writeText(hid_t object, const char* name, const std::string& text) {
  const Handle type = textType(H5T_VARIABLE, H5T_CSET_UTF8);
  const Handle space = checked(Handle(H5Screate(H5S_SCALAR), H5Sclose), "make a space");
  const char* characters = text.c_str();
  writeAttribute(object, name, type, type, space, &characters);
}

void writeInteger(hid_t object, const char* name, int value) {
  const Handle space = checked(Handle(H5Screate(H5S_SCALAR), H5Sclose), "make a space");
  writeAttribute(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, space, &value);
}

void writeDoubles(hid_t object, const char* name, const std::vector<double>& values) {
  const hsize_t count = values.size();
  const Handle space = checked(
      Handle(count == 1 ? H5Screate(H5S_SCALAR) : H5Screate_simple(1, &count, nullptr), H5Sclose), "make a space");
  writeAttribute(object, name, H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, space, values.data());
}

} // namespace Kelvaris::Hdf5
