#pragma once

#include <Eigen/Core>

#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kelvaris {

/// Conversion between values and the text that `Properties` hold. Numbers are written in the shortest form that reads
/// back exactly, NaN as "nan"; lists and vectors are numbers with blanks between, lists of vectors have ';' between the
/// vectors; booleans are "true" and "false" (1 and 0 are read too). `fromText` leaves the value alone and returns false
/// where the text is not such a value in full.
namespace PropertyText {
std::string toText(bool value);
std::string toText(int value);
std::string toText(double value);
std::string toText(const std::string& value);
std::string toText(const char* value);
std::string toText(const std::vector<int>& value);
std::string toText(const std::vector<double>& value);
std::string toText(const Eigen::Vector2i& value);
std::string toText(const Eigen::Vector2d& value);
std::string toText(const Eigen::Vector3d& value);
std::string toText(const Eigen::Matrix4d& value); // row by row
std::string toText(const std::vector<Eigen::Vector2d>& value);
std::string toText(const std::vector<Eigen::Vector3d>& value);

bool fromText(std::string_view text, bool& value);
bool fromText(std::string_view text, int& value);
bool fromText(std::string_view text, double& value);
bool fromText(std::string_view text, std::string& value);
bool fromText(std::string_view text, std::vector<int>& value);
bool fromText(std::string_view text, std::vector<double>& value);
bool fromText(std::string_view text, Eigen::Vector2i& value);
bool fromText(std::string_view text, Eigen::Vector2d& value);
bool fromText(std::string_view text, Eigen::Vector3d& value);
bool fromText(std::string_view text, Eigen::Matrix4d& value);
bool fromText(std::string_view text, std::vector<Eigen::Vector2d>& value);
bool fromText(std::string_view text, std::vector<Eigen::Vector3d>& value);
} // namespace PropertyText

/// An ordered tree: parameters by key, and any number of sub-properties under one name. Parameters are stored as text
/// without a type mark; the reader knows what it asks for.
class Properties {
public:
  using Param = std::pair<std::string, std::string>;
  using Child = std::pair<std::string, Properties>;

  /// Sets `key`, replacing a value that is there in its place.
  template <typename T> void setParam(const std::string& key, const T& value) {
    setText(key, PropertyText::toText(value));
  }

  /// Reads `key` into `value`. Returns false and leaves `value` alone if the key is missing, or if its text is no such
  /// value; the second is logged as an error with the key and the text.
  template <typename T> bool param(const std::string& key, T& value) const {
    const std::string* text = find(key);
    if (!text) return false;
    if (PropertyText::fromText(*text, value)) return true;
    reportUnreadable(key, *text);
    return false;
  }

  bool hasParam(const std::string& key) const { return find(key) != nullptr; }
  void removeParam(const std::string& key);
  const std::vector<Param>& params() const { return m_params; }
  /// Replaces all. Of several with one key, the last text stands in the place of the first.
  void setParams(std::vector<Param> params);

  /// The first sub-properties of that name, created if there are none.
  Properties& subProperties(const std::string& name);
  /// The first sub-properties of that name, or null.
  const Properties* findSubProperties(const std::string& name) const;
  /// All sub-properties of that name, in order.
  std::vector<const Properties*> allSubProperties(const std::string& name) const;
  /// Appends new sub-properties under the name.
  Properties& addSubProperties(const std::string& name);
  void removeSubProperties(const std::string& name);
  const std::vector<Child>& children() const { return m_children; }

  bool empty() const { return m_params.empty() && m_children.empty(); }
  void clear();

  /// Same keys, texts and sub-properties in the same order.
  bool operator==(const Properties& other) const = default;

private:
  void setText(const std::string& key, std::string text);
  const std::string* find(const std::string& key) const;
  static void reportUnreadable(const std::string& key, const std::string& text);

  std::vector<Param> m_params;
  std::vector<Child> m_children;
};

} // namespace Kelvaris
