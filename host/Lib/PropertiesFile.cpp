#include "Lib/PropertiesFile.h"

#include "Core/PropertiesIO.h"
#include "Lib/PendingFile.h"

#include <fmt/format.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Kelvaris::PropertiesFile {

void save(const std::filesystem::path& path, const Properties& properties) {
  PendingFile pending(path);
  std::ofstream stream(pending.path(), std::ios::binary);
  stream << PropertiesIO::toXml(properties);
  stream.close();
  if (!stream) throw std::runtime_error(fmt::format("Can't write {}", path.string()));
  pending.commit();
}

Properties load(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream xml;
  xml << stream.rdbuf();
  if (!stream || !xml) throw std::runtime_error(fmt::format("Can't read {}", path.string()));
  try {
    return PropertiesIO::parseXml(xml.view());
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(fmt::format("{}: {}", path.string(), error.what()));
  }
}

} // namespace Kelvaris::PropertiesFile
