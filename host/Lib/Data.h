#pragma once

#include <memory>
#include <string>
#include <vector>

namespace Kelvaris {

class SharedImageSet;

/// Anything that algorithms take and give.
class Data {
public:
  enum Kind : int {
    UnknownKind = 0,
    OneImage = 1,
    OneVolume = 2, ///< more than one slice
    Images = 3,
    Volumes = 4,
    ImageStreamKind = 5,
    VolumeStreamKind = 6,
    OtherStreamKind = 15
  };
  enum Modality : int { UnknownModality = 0, Ultrasound = 4 };

  virtual ~Data() = default;
  virtual Kind kind() const = 0;
  virtual Modality modality() const = 0;

  const std::string& name() const { return m_name; }
  void setName(std::string name) { m_name = std::move(name); }

private:
  std::string m_name;
};

/// Data of others, who must outlive the list.
class DataList {
public:
  DataList() = default;
  DataList(std::initializer_list<Data*> data) : m_data(data) {}

  void add(Data* data) { m_data.push_back(data); }
  std::size_t size() const { return m_data.size(); }
  bool empty() const { return m_data.empty(); }
  Data* operator[](std::size_t i) const { return m_data[i]; }
  auto begin() const { return m_data.begin(); }
  auto end() const { return m_data.end(); }

  /// The image sets of that kind (0: any) and modality (UnknownModality: any).
  std::vector<SharedImageSet*> getImages(Data::Kind kind, Data::Modality modality) const;

private:
  std::vector<Data*> m_data;
};

/// Data owned by the list.
class OwningDataList {
public:
  void add(std::unique_ptr<Data> data) { m_data.push_back(std::move(data)); }
  std::size_t size() const { return m_data.size(); }
  bool empty() const { return m_data.empty(); }
  Data* operator[](std::size_t i) const { return m_data[i].get(); }
  /// Takes the first element of that type out of the list; null if there is none.
  template <typename T> std::unique_ptr<T> extract() {
    for (auto it = m_data.begin(); it != m_data.end(); ++it)
      if (auto* typed = dynamic_cast<T*>(it->get())) {
        static_cast<void>(it->release());
        m_data.erase(it);
        return std::unique_ptr<T>(typed);
      }
    return nullptr;
  }

private:
  std::vector<std::unique_ptr<Data>> m_data;
};

} // namespace Kelvaris
