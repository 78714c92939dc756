#include "viewer/ImageFiles.h"

#include "Lib/KelvarisFile.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Kelvaris::Viewer::ImageFiles {
namespace {

/// Calls `action(i)` for each image.
template <typename F> void forEachImage(int count, const std::string& text, Progress& progress, F&& action) {
  const auto task = progress.addTask(text, count);
  for (int i = 0; i < count; ++i) {
    if (task->wasCanceled()) throw Canceled();
    action(i);
    task->incrementStep(1);
  }
  if (task->wasCanceled()) throw Canceled();
}

} // namespace

std::unique_ptr<SharedImageSet> load(const std::filesystem::path& path, Progress& progress) {
  const KelvarisFile::Reader reader(path);
  std::unique_ptr<SharedImageSet> set = reader.set().clone(3);
  forEachImage(reader.size(), "Reading " + path.filename().string(), progress, [&](int i) {
    set->add(reader.image(i), reader.timestamp(i));
    set->elementwiseComponents().components(i) = reader.components(i);
  });
  return set;
}

void save(const std::filesystem::path& path, const SharedImageSet& set, Progress& progress) {
  if (path.extension() != ".kvx")
    throw std::runtime_error(fmt::format("The name {} doesn't end in .kvx", path.string()));
  KelvarisFile::Writer writer(path);
  forEachImage(set.size(), "Writing " + path.filename().string(), progress,
               [&](int i) { writer.append(set.get(i), set.elementwiseComponents().components(i), set.timestamp(i)); });
  writer.close(set);
  writer.finish();
}

} // namespace Kelvaris::Viewer::ImageFiles
