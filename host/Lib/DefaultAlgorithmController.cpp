#include "Lib/DefaultAlgorithmController.h"

#include "Lib/Algorithm.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Kelvaris {

DefaultAlgorithmController::DefaultAlgorithmController(Algorithm* algorithm, std::string title, bool closeWhenDone,
                                                       bool computeAtOnce)
    : AlgorithmController(algorithm),
      m_title(std::move(title)),
      m_closeWhenDone(closeWhenDone),
      m_computeAtOnce(computeAtOnce) {
  refresh();
}

std::string DefaultAlgorithmController::title() const {
  return m_title.empty() ? algorithm().factoryInfo().displayName : m_title;
}

void DefaultAlgorithmController::setText(const std::string& key, const std::string& text) {
  const auto field = std::find_if(m_fields.begin(), m_fields.end(), [&](const Field& f) { return f.key == key; });
  if (field == m_fields.end()) {
    std::vector<std::string> keys;
    for (const Field& f : m_fields)
      keys.push_back(f.key);
    throw std::invalid_argument(
        fmt::format("There is no parameter \"{}\"; there {}", key,
                    keys.empty() ? "are none" : fmt::format("is \"{}\"", fmt::join(keys, "\", \""))));
  }
  const ParameterBase& parameter = *algorithm().parameter(key.c_str());
  if (!parameter.accepts(text))
    throw std::invalid_argument(
        fmt::format("\"{}\" is no value of the parameter \"{}\", which takes {}", text, key, parameter.expected()));
  field->text = text;
  m_edits.setParam(key, text);
  if (m_configureOnChanged) apply();
}

void DefaultAlgorithmController::apply() {
  algorithm().configure(&m_edits);
  refresh();
}

void DefaultAlgorithmController::refresh() {
  m_edits.clear();
  m_fields.clear();
  for (const ParameterBase* parameter : algorithm().parameters())
    m_fields.push_back(
        {parameter->name(), parameter->text(), parameter->type(), parameter->isEnabled(), parameter->attributes()});
}

} // namespace Kelvaris
