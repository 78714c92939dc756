#pragma once

#include <QWidget>

class QComboBox;
class QSortFilterProxyModel;
class QTableView;

namespace Kelvaris::Viewer {

class LogModel;

/// What the program has logged, newest last: with a choice of the least level that is shown, copying and clearing.
class LogPanel : public QWidget {
  Q_OBJECT

public:
  /// The log must outlive the panel.
  explicit LogPanel(LogModel& log, QWidget* parent = nullptr);

public Q_SLOTS:
  /// The selected lines, or all that are shown if none is, to the clipboard.
  void copy() const;

private:
  QSortFilterProxyModel* m_shown;
  QComboBox* m_level;
  QTableView* m_table;
};

} // namespace Kelvaris::Viewer
