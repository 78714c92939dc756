#pragma once

#include "Lib/AlgorithmControllerFactory.h"
#include "Lib/AlgorithmFactory.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

namespace Kelvaris {

/// All algorithm and controller factories of the process, in the order in which they came. Thread-safe.
class FactoryRegistry {
public:
  static FactoryRegistry& get();

  /// `owner` names who brought the factories, for remove(). Null factories are ignored.
  void add(std::unique_ptr<AlgorithmFactory> algorithms, std::unique_ptr<AlgorithmControllerFactory> controllers,
           const void* owner);
  /// Destroys the factories of that owner. Their descriptors, algorithms and controllers must be gone.
  void remove(const void* owner);

  std::vector<AlgorithmFactory::Descriptor> algorithmDescriptors() const;
  std::vector<AlgorithmFactory::Descriptor> compatibleDescriptors(const DataList& data) const;
  /// All that go by that id, display name or alias.
  std::vector<AlgorithmFactory::Descriptor> descriptorsNamed(std::string_view name) const;
  /// By id; with `orDisplayName`, by the last level of the category where no id fits.
  std::optional<AlgorithmFactory::Descriptor> algorithmDescriptor(std::string_view id, bool orDisplayName) const;
  /// Makes the controller of an algorithm that no factory has one for; the algorithm must outlive it.
  using ControllerMaker = std::function<std::unique_ptr<AlgorithmController>(Algorithm*)>;
  /// Set by the library that has a generic form (host/Gui does so when it is loaded), and taken back with null before
  /// that library goes.
  void setDefaultControllerMaker(ControllerMaker maker);
  /// From the first factory that has one, else from the default maker; null if neither has one. Throws
  /// std::invalid_argument for null, and what the forms throw: std::runtime_error where the process can't show any.
  std::unique_ptr<AlgorithmController> createAlgorithmController(Algorithm* algorithm) const;

private:
  struct Entry {
    const void* owner;
    std::shared_ptr<const AlgorithmFactory> algorithms;
    std::shared_ptr<const AlgorithmControllerFactory> controllers;
  };
  std::vector<Entry> entries() const;

  mutable std::mutex m_mutex;
  std::vector<Entry> m_entries;
  ControllerMaker m_defaultControllerMaker;
};

} // namespace Kelvaris
