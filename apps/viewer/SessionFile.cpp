#include "viewer/SessionFile.h"

#include "Lib/PropertiesFile.h"
#include "viewer/ErrorText.h"
#include "viewer/ImageFiles.h"

#include <fmt/format.h>

#include <stdexcept>
#include <system_error>

namespace Kelvaris::Viewer::SessionFile {

namespace fs = std::filesystem;

namespace {

fs::path unusedFile(const fs::path& folder, int id) {
  fs::path file = folder / fmt::format("{}.kvx", id);
  for (int i = 2; fs::exists(file); ++i)
    file = folder / fmt::format("{}-{}.kvx", id, i);
  return file;
}

} // namespace

fs::path dataFolder(const fs::path& sessionFile) {
  fs::path folder = sessionFile;
  return folder.replace_extension(".data");
}

void save(const fs::path& path, Session& session, const std::map<int, std::shared_ptr<const SharedImageSet>>& data,
          Progress& progress) {
  const fs::path folder = dataFolder(path);
  if (!data.empty()) {
    std::error_code error;
    fs::create_directory(folder, error);
    if (!fs::is_directory(folder, error))
      throw std::runtime_error(fmt::format("{} can't be made a folder for the session's data", folder.string()));
  }
  for (Session::Item& item : session.items)
    if (const auto images = data.find(item.id); images != data.end()) {
      item.file = unusedFile(folder, item.id);
      ImageFiles::save(item.file, *images->second, progress);
    }
  PropertiesFile::save(path, session.toProperties(path.parent_path()));
}

Opened open(const fs::path& path, Progress& progress) {
  Opened opened;
  const Properties properties = PropertiesFile::load(path);
  try {
    opened.session = Session::fromProperties(properties, path.parent_path());
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(fmt::format("{}: {}", path.string(), error.what()));
  }
  for (const Session::Item& item : opened.session.items)
    try {
      opened.images[item.id] = ImageFiles::load(item.file, progress);
    } catch (const std::exception&) {
      opened.problems.push_back(
          fmt::format("\"{}\" of the session is missing: {}", item.name, currentErrorText(item.file.string())));
    }
  return opened;
}

} // namespace Kelvaris::Viewer::SessionFile
