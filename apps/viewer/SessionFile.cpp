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

fs::path freeFile(const fs::path& folder, int id) {
  fs::path file = folder / fmt::format("{}.kvx", id);
  for (int i = 2; fs::exists(file); ++i)
    file = folder / fmt::format("{}-{}.kvx", id, i);
  return file;
}

/// Takes out the files that the session names.
void keepFilesOf(const Session& session, std::set<fs::path>& unused) {
  for (const Session::Item& item : session.items)
    unused.erase(item.file);
}

/// True unless another session in the folder may name one of them: a copy of this one may.
bool keepFilesOfOthers(const fs::path& path, std::set<fs::path>& unused) {
  try {
    for (const fs::directory_entry& entry : fs::directory_iterator(path.parent_path()))
      if (entry.path().extension() == path.extension() && entry.path() != path)
        keepFilesOf(Session::fromProperties(PropertiesFile::load(entry.path()), path.parent_path()), unused);
    return true;
  } catch (const std::exception&) { // who knows what that one needs
    return false;
  }
}

void removeUnused(const fs::path& path, const Session& session, std::set<fs::path> unused) {
  keepFilesOf(session, unused);
  if (unused.empty() || !keepFilesOfOthers(path, unused)) return;
  std::error_code ignored; // it can't be removed, and takes some room
  for (const fs::path& file : unused)
    fs::remove(file, ignored);
  if (!unused.empty()) fs::remove(dataFolder(path), ignored); // only if nothing else is in it
}

} // namespace

fs::path dataFolder(const fs::path& sessionFile) {
  fs::path folder = sessionFile;
  return folder.replace_extension(".data");
}

void save(const fs::path& path, Session& session, const std::map<int, std::shared_ptr<const SharedImageSet>>& data,
          const std::set<fs::path>& unused, Progress& progress) {
  const fs::path folder = dataFolder(path);
  if (!data.empty()) {
    std::error_code error;
    fs::create_directory(folder, error);
    if (!fs::is_directory(folder, error))
      throw std::runtime_error(fmt::format("{} can't be made a folder for the session's data", folder.string()));
  }
  std::vector<fs::path> written;
  try {
    for (Session::Item& item : session.items)
      if (const auto images = data.find(item.id); images != data.end()) {
        item.file = freeFile(folder, item.id);
        item.own = true;
        ImageFiles::save(item.file, *images->second, progress);
        written.push_back(item.file);
      }
    PropertiesFile::save(path, session.toProperties(path.parent_path()));
  } catch (...) {
    std::error_code ignored;
    for (const fs::path& file : written)
      fs::remove(file, ignored);
    fs::remove(folder, ignored); // only if nothing else is in it
    throw;
  }
  removeUnused(path, session, unused);
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
