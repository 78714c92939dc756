#pragma once

#include "Core/Configurable.h"

#include <algorithm>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Kelvaris {

/// A piece of description that travels with an image or an image set and can be stored under its id.
class DataComponentBase : public Configurable {
public:
  virtual std::string id() const = 0;
  virtual std::unique_ptr<DataComponentBase> clone() const = 0;
  /// Takes over the state of a component of the same type. Returns false for another type.
  virtual bool assign(const DataComponentBase& other) = 0;
  virtual bool equals(const DataComponentBase& other) const = 0;
};

/// clone, assign and equals from T's copy operations and operator==.
template <typename T> class DataComponent : public DataComponentBase {
public:
  std::unique_ptr<DataComponentBase> clone() const override { return std::make_unique<T>(self()); }

  bool assign(const DataComponentBase& other) override {
    if (typeid(other) != typeid(T)) return false;
    static_cast<T&>(*this) = static_cast<const T&>(other);
    return true;
  }

  bool equals(const DataComponentBase& other) const override {
    return typeid(other) == typeid(T) && self() == static_cast<const T&>(other);
  }

private:
  const T& self() const { return static_cast<const T&>(*this); }
};

/// Components in order, at most one of a type (components of unknown ids aside). Copies are deep.
class DataComponentList {
public:
  DataComponentList() = default;
  DataComponentList(const DataComponentList& other);
  DataComponentList& operator=(const DataComponentList& other);
  DataComponentList(DataComponentList&&) = default;
  DataComponentList& operator=(DataComponentList&&) = default;

  /// Replaces a component of the same type and id in its place.
  DataComponentBase& add(std::unique_ptr<DataComponentBase> component);
  template <typename T, typename... Args> T& add(Args&&... args) {
    return static_cast<T&>(add(std::make_unique<T>(std::forward<Args>(args)...)));
  }
  /// Adds copies of all components of `other`; they replace those of the same type.
  void add(const DataComponentList& other);

  /// The first component whose type is exactly T, or null.
  template <typename T> const T* get() const {
    for (const auto& component : m_components)
      if (const DataComponentBase& c = *component; typeid(c) == typeid(T))
        return static_cast<const T*>(component.get());
    return nullptr;
  }
  template <typename T> T* get() { return const_cast<T*>(std::as_const(*this).template get<T>()); }
  /// The same, added if there is none.
  template <typename T> T& getOrCreate() {
    T* const present = get<T>();
    return present ? *present : add<T>();
  }
  /// Removes all components whose type is exactly T.
  template <typename T> void erase() {
    std::erase_if(m_components, [](const std::unique_ptr<DataComponentBase>& component) {
      const DataComponentBase& c = *component;
      return typeid(c) == typeid(T);
    });
  }

  std::size_t size() const { return m_components.size(); }
  bool empty() const { return m_components.empty(); }
  auto begin() const { return m_components.begin(); }
  auto end() const { return m_components.end(); }

private:
  std::vector<std::unique_ptr<DataComponentBase>> m_components;
};

/// One list an image.
class ElementwiseDataComponentList {
public:
  /// The list of that index; an empty one where none was set. Throws std::out_of_range for a negative index.
  const DataComponentList& components(int index) const;
  /// Grows as needed.
  DataComponentList& components(int index);
  void add(const DataComponentList& components, int index) { this->components(index).add(components); }
  /// Calls `f(list)` for every list that there is.
  template <typename F> void forEach(F&& f) {
    for (DataComponentList& list : m_lists)
      f(list);
  }

private:
  std::vector<DataComponentList> m_lists;
};

} // namespace Kelvaris
