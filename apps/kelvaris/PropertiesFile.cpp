#include "kelvaris/PropertiesFile.h"

#include "Core/PropertiesIO.h"
#include "Lib/PendingFile.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Kelvaris::CommandLine {

Properties readPropertiesFile(const std::filesystem::path& path, const std::string& what) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream || std::filesystem::is_directory(path))
    throw std::runtime_error(
        fmt::format("{} can't be read: there is no such file, or it is out of reach", path.string()));
  const std::string xml{std::istreambuf_iterator<char>(stream), {}};
  const auto properties = PropertiesIO::fromXml(xml);
  if (!properties) throw std::runtime_error(fmt::format("{} doesn't hold {}", path.string(), what));
  return *properties;
}

void writePropertiesFile(const std::filesystem::path& path, const Properties& properties) {
  PendingFile file(path);
  std::ofstream stream(file.path());
  stream << PropertiesIO::toXml(properties);
  stream.close();
  if (!stream) throw std::runtime_error(fmt::format("{} can't be written", path.string()));
  file.commit();
}

} // namespace Kelvaris::CommandLine
