#pragma once

#include "Core/Progress.h"
#include "Lib/SharedImageSet.h"
#include "viewer/Session.h"

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// Sessions with their data as files. Errors are std::runtime_error with the file in the message, and
/// ImageFiles::Canceled.
namespace Kelvaris::Viewer::SessionFile {

/// Where data go that a session keeps itself: "study.data" for "study.session".
std::filesystem::path dataFolder(const std::filesystem::path& sessionFile);

/// Writes the data first, by the id of their items, under names that no file has yet, and gives the items these names.
/// So a session that is there before stays whole until the new one takes its place. After that, those of the `unused`
/// files go that neither the session nor another one beside it names. Of what fails nothing is left.
void save(const std::filesystem::path& path, Session& session,
          const std::map<int, std::shared_ptr<const SharedImageSet>>& data,
          const std::set<std::filesystem::path>& unused, Progress& progress);

struct Opened {
  Session session;
  std::map<int, std::unique_ptr<SharedImageSet>> images; ///< by the id of their items, of those that could be read
  std::vector<std::string> problems;                     ///< why the others couldn't, for the user
};
Opened open(const std::filesystem::path& path, Progress& progress);

} // namespace Kelvaris::Viewer::SessionFile
