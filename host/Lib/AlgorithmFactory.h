#pragma once

#include "Core/Properties.h"
#include "Lib/Algorithm.h"
#include "Lib/Data.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <typeindex>
#include <utility>
#include <vector>

namespace Kelvaris {

/// What can run on which data, under which id and menu path.
class AlgorithmFactory {
public:
  struct Descriptor {
    enum AlgorithmAttributes : int {
      NoAttributes = 0,
      Expert = 2 ///< for users who know what they do; a menu may hide it
    };

    std::string id;                   ///< with the factory's name: "USImgFormation.LogCompression"
    std::string category;             ///< menu path with ';' between its levels
    std::vector<std::string> aliases; ///< names beside the display name by which stream executors find it
    int attributes = NoAttributes;
    std::optional<Properties> properties; ///< settings of every new algorithm
    /// Null if the algorithm doesn't work on the data, which must outlive it.
    std::function<std::unique_ptr<Algorithm>(const DataList&)> create;
    std::function<bool(const DataList&)> isCompatible;

    /// The last level of the category.
    std::string displayName() const;
    /// True for the id, the display name and the aliases.
    bool isNamed(std::string_view name) const;
  };

  explicit AlgorithmFactory(std::string name) : m_name(std::move(name)) {}
  virtual ~AlgorithmFactory() = default;
  AlgorithmFactory(const AlgorithmFactory&) = delete;
  AlgorithmFactory& operator=(const AlgorithmFactory&) = delete;

  const std::string& name() const { return m_name; }

  /// In the order of registration.
  virtual std::vector<Descriptor> algorithmDescriptors() const { return m_descriptors; }
  virtual std::optional<Descriptor> algorithmDescriptor(std::string_view id) const;
  virtual std::vector<Descriptor> compatibleDescriptors(const DataList& data) const;
  /// Null for an unknown id and for data on which the algorithm doesn't work.
  virtual std::unique_ptr<Algorithm> instantiateAlgorithm(std::string_view id, const DataList& data) const;

  /// The id under which the class was registered; empty if it was not.
  std::string idOf(std::type_index type) const;

protected:
  /// `T::createCompatible(const DataList&, Algorithm**)` tests the data and creates. A second registration of an id is
  /// ignored with a warning.
  template <typename T>
  void registerAlgorithm(const std::string& id, const std::string& category, int attributes = 0,
                         std::optional<Properties> properties = std::nullopt) {
    registerAlgorithm(std::type_index(typeid(T)), id, category, attributes, std::move(properties),
                      &T::createCompatible);
  }

  /// Gives the algorithm registered as `id` one more name, for stream executors that were made for another entry. An
  /// unknown id is ignored with a warning.
  void addAlias(const std::string& id, const std::string& alias);

private:
  using CreateCompatible = bool (*)(const DataList&, Algorithm**);
  void registerAlgorithm(std::type_index type, const std::string& id, const std::string& category, int attributes,
                         std::optional<Properties> properties, CreateCompatible createCompatible);

  std::string m_name;
  std::vector<Descriptor> m_descriptors;
  std::map<std::type_index, std::string> m_idByType;
};

} // namespace Kelvaris
