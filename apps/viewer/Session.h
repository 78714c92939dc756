#pragma once

#include "Core/Properties.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Kelvaris::Viewer {

/// What the file of a session holds, free of live objects:
///
///     <properties>
///       <param key="format">kelvaris-session</param> <param key="version">1</param>
///       <properties key="item"> id, name, file (relative to the session's folder), own </properties> ...
///       <properties key="step"> algorithm, inputs (ids of items), output (the id that the item which it makes gets),
///         outputName, run, stream, <properties key="configuration">...</properties> </properties> ...
///       <properties key="view">...</properties>
///     </properties>
///
/// A step takes items and the outputs of steps before it.
struct Session {
  struct Item {
    int id = 0;
    std::string name;
    std::filesystem::path file;
    bool own = false; ///< the session wrote the file, and removes it when it isn't needed any more
  };
  struct Step {
    std::string algorithm;
    std::vector<int> inputs;
    int output = 0; ///< 0: it has made none yet
    std::string outputName;
    bool run = false;   ///< it has been run, so that it is run again when the session is opened
    std::string stream; ///< what the stream that it makes from nothing does: running, paused, stopped; empty: none
    Properties configuration;
  };

  std::vector<Item> items;
  std::vector<Step> steps;
  Properties view; ///< the window's own

  /// `folder` is the one that the file goes to.
  Properties toProperties(const std::filesystem::path& folder) const;
  /// Throws std::runtime_error where the properties are none of a session, or don't hold together.
  static Session fromProperties(const Properties& properties, const std::filesystem::path& folder);
};

} // namespace Kelvaris::Viewer
