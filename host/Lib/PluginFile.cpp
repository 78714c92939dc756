#include "Lib/PluginFile.h"

#include "Lib/PluginInterface.h"

#include <elf.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

namespace Kelvaris {
namespace {

constexpr const char* kDescriptorSymbol = "kelvarisPluginDescriptor";
constexpr const char* kFunctionSymbols[] = {"kelvarisPluginId", "kelvarisCreatePlugin"};

std::string readBytes(const std::filesystem::path& path) {
  std::error_code error;
  const bool isFile = std::filesystem::is_regular_file(path, error);
  if (!isFile && !error) throw PluginError(fmt::format("\"{}\" is not a plugin: it is no file", path.string()));
  const std::uintmax_t size = error ? 0 : std::filesystem::file_size(path, error);
  std::string bytes;
  if (!error) {
    bytes.resize(size);
    std::ifstream file(path, std::ios::binary);
    if (file.read(bytes.data(), static_cast<std::streamsize>(size))) return bytes;
    error = std::error_code(errno, std::generic_category());
  }
  throw PluginError(fmt::format("\"{}\" can't be read: {}", path.string(), error.message()));
}

/// The parts of a 64-bit ELF shared library that lead to the text behind an exported `const char*`. Every access is
/// checked against the size of the file.
class ElfLibrary {
public:
  ElfLibrary(std::string bytes, std::string path) : m_bytes(std::move(bytes)), m_path(std::move(path)) {
    const auto header = m_bytes.size() >= sizeof(Elf64_Ehdr) ? at<Elf64_Ehdr>(0) : Elf64_Ehdr{};
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) fail("it is no shared library (no ELF file)");
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
        header.e_machine != EM_X86_64)
      fail(fmt::format(
          "it is built for another machine (ELF class {}, machine {}); expected x86-64 (class {}, machine {})",
          header.e_ident[EI_CLASS], header.e_machine, ELFCLASS64, EM_X86_64));
    if (header.e_type != ET_DYN)
      fail(fmt::format("it is no shared library (ELF type {}, expected {})", header.e_type, ET_DYN));
    m_segments = table<Elf64_Phdr>(header.e_phoff, header.e_phnum, header.e_phentsize);
    m_sections = table<Elf64_Shdr>(header.e_shoff, header.e_shnum, header.e_shentsize);
  }

  /// The defined dynamic symbol of that name.
  std::optional<Elf64_Sym> symbol(std::string_view name) const {
    for (const Elf64_Shdr& section : m_sections) {
      if (section.sh_type != SHT_DYNSYM) continue;
      if (section.sh_link >= m_sections.size()) fail("it is damaged (no names of its symbols)");
      const Elf64_Shdr& names = m_sections[section.sh_link];
      for (const Elf64_Sym& entry : entries<Elf64_Sym>(section))
        if (entry.st_shndx != SHN_UNDEF && entry.st_name < names.sh_size &&
            text(names.sh_offset + entry.st_name) == name)
          return entry;
    }
    return std::nullopt;
  }

  /// The text at which the pointer that lies at `address` will point once the library is loaded.
  std::string_view textBehind(Elf64_Addr address) const {
    for (const Elf64_Shdr& section : m_sections)
      if (section.sh_type == SHT_RELA)
        for (const Elf64_Rela& relocation : entries<Elf64_Rela>(section))
          if (relocation.r_offset == address && ELF64_R_TYPE(relocation.r_info) == R_X86_64_RELATIVE)
            return text(fileOffset(static_cast<Elf64_Addr>(relocation.r_addend)));
    return text(fileOffset(at<Elf64_Addr>(fileOffset(address))));
  }

private:
  [[noreturn]] void fail(const std::string& reason) const {
    throw PluginError(fmt::format("\"{}\" is not a plugin: {}", m_path, reason));
  }

  template <typename T> T at(Elf64_Off offset) const {
    static_assert(std::is_trivially_copyable_v<T>);
    if (offset > m_bytes.size() || m_bytes.size() - offset < sizeof(T)) fail("the file is cut short or damaged");
    T value;
    std::memcpy(&value, m_bytes.data() + offset, sizeof(T));
    return value;
  }

  template <typename T> std::vector<T> table(Elf64_Off offset, std::size_t count, std::size_t stride) const {
    if (count > 0 && (stride < sizeof(T) || count > m_bytes.size() / stride)) fail("the file is cut short or damaged");
    std::vector<T> values;
    for (std::size_t i = 0; i < count; ++i)
      values.push_back(at<T>(offset + i * stride));
    return values;
  }

  template <typename T> std::vector<T> entries(const Elf64_Shdr& section) const {
    return table<T>(section.sh_offset, section.sh_size / sizeof(T), sizeof(T));
  }

  /// The NUL-terminated text at that offset of the file.
  std::string_view text(Elf64_Off offset) const {
    const std::size_t end = offset < m_bytes.size() ? m_bytes.find('\0', offset) : std::string::npos;
    if (end == std::string::npos) fail("the file is cut short or damaged");
    return std::string_view(m_bytes).substr(offset, end - offset);
  }

  Elf64_Off fileOffset(Elf64_Addr address) const {
    for (const Elf64_Phdr& segment : m_segments)
      if (segment.p_type == PT_LOAD && address >= segment.p_vaddr && address - segment.p_vaddr < segment.p_filesz)
        return segment.p_offset + (address - segment.p_vaddr);
    fail("the file is cut short or damaged");
  }

  std::string m_bytes;
  std::string m_path;
  std::vector<Elf64_Phdr> m_segments;
  std::vector<Elf64_Shdr> m_sections;
};

/// The value of the field "<key>=<value>" among fields separated by '|'.
std::optional<std::string> field(std::string_view descriptor, std::string_view key) {
  while (!descriptor.empty()) {
    const std::string_view entry = descriptor.substr(0, descriptor.find('|'));
    if (entry.size() > key.size() && entry.substr(0, key.size()) == key && entry[key.size()] == '=')
      return std::string(entry.substr(key.size() + 1));
    descriptor.remove_prefix(std::min(entry.size() + 1, descriptor.size()));
  }
  return std::nullopt;
}

} // namespace

PluginFile PluginFile::read(const std::filesystem::path& path) {
  const ElfLibrary library(readBytes(path), path.string());
  const auto descriptorSymbol = library.symbol(kDescriptorSymbol);
  if (!descriptorSymbol)
    throw PluginError(fmt::format("\"{}\" is not a plugin: it does not export {}", path.string(), kDescriptorSymbol));
  for (const char* name : kFunctionSymbols)
    if (!library.symbol(name))
      throw PluginError(fmt::format("\"{}\" is not a plugin: it does not export {}", path.string(), name));

  PluginFile file;
  file.descriptor = library.textBehind(descriptorSymbol->st_value);
  const auto hostVersion = field(file.descriptor, "hostversion"), buildFlags = field(file.descriptor, "buildflags");
  if (!file.descriptor.starts_with(KELVARIS_PLUGIN_MAGIC "|") || !hostVersion || !buildFlags)
    throw PluginError(fmt::format("\"{}\" is not a plugin that this host knows: its descriptor is \"{}\", expected "
                                  "\"{}|hostversion=...|buildflags=...|pluginversion=...\"",
                                  path.string(), file.descriptor.substr(0, 200), KELVARIS_PLUGIN_MAGIC));
  file.hostVersion = *hostVersion;
  file.buildFlags = *buildFlags;
  file.pluginVersion = field(file.descriptor, "pluginversion").value_or("");
  return file;
}

void PluginFile::checkAgainstHost(const std::filesystem::path& path) const {
  if (hostVersion != KELVARIS_HOST_VERSION)
    throw PluginError(fmt::format("\"{}\" was built against version {} of the host; this is {}", path.string(),
                                  hostVersion, KELVARIS_HOST_VERSION));
  if (buildFlags != KELVARIS_BUILD_FLAGS)
    throw PluginError(fmt::format("\"{}\" was built with the flags \"{}\"; this host has \"{}\"", path.string(),
                                  buildFlags, KELVARIS_BUILD_FLAGS));
}

} // namespace Kelvaris
