#pragma once

#include "Core/Parameter.h"
#include "Lib/AlgorithmController.h"

#include <map>
#include <string>
#include <vector>

namespace Kelvaris {

/// The generic form of an algorithm: one field a registered parameter. Texts are those of `Properties`.
class DefaultAlgorithmController : public AlgorithmController {
public:
  struct Field {
    std::string key;
    std::string text; ///< as edited; apply() brings it to the algorithm
    ParameterType type;
    bool enabled;
    std::map<std::string, std::string> attributes; ///< "suffix", "decimals", "min", "max", "step", "values"
  };

  /// An empty title stands for the algorithm's display name. `closeWhenDone`: the form goes away after a successful
  /// compute(). `computeAtOnce`: compute() runs as soon as the form shows, without the user's asking.
  DefaultAlgorithmController(Algorithm* algorithm, std::string title, bool closeWhenDone, bool computeAtOnce);

  std::string title() const;
  bool closesWhenDone() const { return m_closeWhenDone; }
  bool computesAtOnce() const { return m_computeAtOnce; }

  /// With true, every change of a field reaches configure() of the algorithm at once.
  void setConfigureOnChanged(bool configureOnChanged) { m_configureOnChanged = configureOnChanged; }
  bool configureOnChanged() const { return m_configureOnChanged; }

  /// In the order of registration.
  const std::vector<Field>& fields() const { return m_fields; }
  /// Throws std::invalid_argument, with nothing changed, for an unknown key (naming those there are) and for a text
  /// that is no value of the parameter (saying what would be).
  void setText(const std::string& key, const std::string& text);
  /// Hands the changed fields to configure() of the algorithm, and takes all fields from it.
  void apply();
  /// Takes the fields from the algorithm, dropping edits that were not applied.
  void refresh();

private:
  std::string m_title;
  bool m_closeWhenDone;
  bool m_computeAtOnce;
  bool m_configureOnChanged = false;
  std::vector<Field> m_fields;
  Properties m_edits; ///< what setText() changed since the last apply() or refresh()
};

} // namespace Kelvaris
