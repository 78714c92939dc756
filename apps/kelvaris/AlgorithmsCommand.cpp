#include "kelvaris/AlgorithmsCommand.h"

#include "kelvaris/ExampleData.h"
#include "kelvaris/Step.h"

#include "Lib/FactoryRegistry.h"
#include "Lib/KelvarisFile.h"
#include "Lib/PluginManager.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace Kelvaris::CommandLine {
namespace {

/// The first two images without their pixels: as much as an algorithm asks for before it says whether it works on a
/// set.
std::unique_ptr<SharedImageSet> outlineOf(const KelvarisFile::Reader& reader) {
  std::unique_ptr<SharedImageSet> set = reader.set().clone(3);
  for (int i = 0; i < std::min(reader.size(), 2); ++i) {
    set->add(std::make_shared<SharedImage>(reader.descriptor(i)), reader.timestamp(i));
    set->elementwiseComponents().components(i) = reader.components(i);
  }
  return set;
}

/// Prints the parameters of an instance on these images; false if it doesn't work on them.
bool printParameters(const AlgorithmFactory::Descriptor& descriptor, const SharedImageSet& images) {
  try {
    const auto algorithm = descriptor.create(DataList{const_cast<SharedImageSet*>(&images)});
    if (!algorithm) return false;
    fmt::print("{}\n", describeParameters(*algorithm));
  } catch (const std::exception& error) {
    fmt::print("  can't be created: {}\n", error.what());
  }
  return true;
}

void print(const std::vector<AlgorithmFactory::Descriptor>& descriptors, const SharedImageSet* set) {
  std::size_t idWidth = 0, pathWidth = 0;
  for (const auto& descriptor : descriptors) {
    idWidth = std::max(idWidth, descriptor.id.size());
    pathWidth = std::max(pathWidth, descriptor.category.size());
  }
  for (const auto& descriptor : descriptors) {
    fmt::print("{:{}}  {:{}}  {}\n", descriptor.id, idWidth, descriptor.category, pathWidth, descriptor.displayName());
    if (set) printParameters(descriptor, *set);
  }
}

/// Id, menu path, name and parameters of one algorithm.
void describe(const std::string& id, const std::string& file) {
  PluginManager::get().loadAll();
  const AlgorithmFactory::Descriptor descriptor = findAlgorithm(id);
  print({descriptor}, nullptr);
  std::vector<std::unique_ptr<SharedImageSet>> sets;
  if (file.empty())
    sets = exampleData();
  else
    sets.push_back(outlineOf(KelvarisFile::Reader(file)));
  for (const auto& set : sets)
    if (printParameters(descriptor, *set)) return;
  fmt::print("  {}\n",
             file.empty() ? "works on live streams alone; its parameters show there" : "doesn't work on " + file);
}

void algorithms(const std::string& file) {
  PluginManager::get().loadAll();
  if (file.empty()) {
    print(FactoryRegistry::get().algorithmDescriptors(), nullptr);
    return;
  }
  const std::unique_ptr<SharedImageSet> set = outlineOf(KelvarisFile::Reader(file));
  const auto descriptors = FactoryRegistry::get().compatibleDescriptors(DataList{set.get()});
  if (descriptors.empty()) fmt::print("No algorithm works on {}\n", file);
  print(descriptors, set.get());
}

} // namespace

void addAlgorithmsCommand(CLI::App& app, Job& job) {
  CLI::App* command =
      app.add_subcommand("algorithms", "List the algorithms: id, menu path, display name; for a file, those that work "
                                       "on it, with their parameters");
  auto file = std::make_shared<std::string>(), id = std::make_shared<std::string>();
  command->add_option("FILE", *file, "Images (.kvx)");
  command->set_help_flag();
  CLI::Option* help = command->add_option("-h,--help", *id, "This text; with ID, the parameters of that algorithm")
                          ->type_name("[ID]")
                          ->expected(0, 1);
  command->callback([help, file, id, &job] {
    if (*help && id->empty()) throw CLI::CallForHelp();
    job = [id = *id, file = *file] { id.empty() ? algorithms(file) : describe(id, file); };
  });
}

} // namespace Kelvaris::CommandLine
