#pragma once

#include "Core/Progress.h"
#include "Lib/SharedImageSet.h"

#include <filesystem>
#include <memory>

/// Files of images (.kvx), read and written with progress. Errors are those of KelvarisFile.
namespace Kelvaris::Viewer::ImageFiles {

/// Thrown when the progress has been cancelled.
struct Canceled {};

std::unique_ptr<SharedImageSet> load(const std::filesystem::path& path, Progress& progress);
/// Nothing is left behind of what fails or is cancelled. Throws std::runtime_error, too, for a name that doesn't end in
/// .kvx.
void save(const std::filesystem::path& path, const SharedImageSet& set, Progress& progress);

} // namespace Kelvaris::Viewer::ImageFiles
