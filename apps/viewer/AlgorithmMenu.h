#pragma once

#include "Lib/AlgorithmFactory.h"

#include <QMenu>
#include <QPointer>

#include <functional>
#include <utility>
#include <vector>

namespace Kelvaris::Viewer {

/// The algorithms of the factories, nested as their categories say. Entries that don't fit the selected data are
/// disabled, with a status tip that says so; entries that take no data fit always. Those for experts stand in italics.
class AlgorithmMenu : public QMenu {
  Q_OBJECT

public:
  explicit AlgorithmMenu(const std::vector<AlgorithmFactory::Descriptor>& descriptors, QWidget* parent = nullptr);

  /// Adds entries of their own for those that take no data, for the menu that offers sources.
  void addSources(QMenu& menu);

  /// What is selected: which algorithms fit, and how it is called in a sentence ("“disk” (volume, ...)"). `count`: the
  /// number of selected entries.
  void setSelection(const std::function<bool(const AlgorithmFactory::Descriptor&)>& fits, const QString& text,
                    int count);

Q_SIGNALS:
  void chosen(const QString& algorithmId);

private:
  QAction* addEntry(QMenu& menu, const AlgorithmFactory::Descriptor& descriptor);

  struct Entry {
    AlgorithmFactory::Descriptor descriptor;
    QAction* action;
    bool takesNoData;
  };
  std::vector<Entry> m_entries;
};

} // namespace Kelvaris::Viewer
