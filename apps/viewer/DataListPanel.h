#pragma once

#include <QHash>
#include <QWidget>

#include <memory>
#include <vector>

class QTreeWidget;
class QTreeWidgetItem;

namespace Kelvaris::Viewer {

class DataDetails;
class DataItem;
class Step;
class Workspace;

/// All data of the workspace, what was made from other data below it; with kind, size and components, and the details
/// of the selected entry. Steps that have no result yet stand in for it, in italics.
class DataListPanel : public QWidget {
  Q_OBJECT

public:
  /// The workspace must outlive the panel.
  explicit DataListPanel(Workspace& workspace, QWidget* parent = nullptr);

  /// In the order of the list.
  std::vector<DataItem*> selectedItems() const;
  /// The selected step without a result; null if there is none.
  Step* selectedStep() const;
  /// Alone.
  void select(const DataItem& item);
  /// The entry where the keyboard is, if none is selected.
  void selectCurrent();
  /// Lets the user edit the name of the current entry.
  void editName();
  /// Actions of the list's context menu; their shortcuts work in the list.
  void setActions(const QList<QAction*>& actions);

Q_SIGNALS:
  void selectionChanged();
  /// Streams have turned out to be of other kinds than they were listed with.
  void kindsChanged();
  /// The user asks for the settings of the selected entry: Return or a double click.
  void activated();

private:
  void addItem(DataItem& item);
  void addStep(Step& step);
  void removeRow(QTreeWidgetItem* row);
  void fill(DataItem& item);
  void fill(Step& step);
  void updateDetails();
  QTreeWidgetItem* rowOf(const DataItem* item) const { return m_itemRows.value(item); }
  void insert(std::unique_ptr<QTreeWidgetItem> row, const std::vector<DataItem*>& inputs);

  Workspace& m_workspace;
  QTreeWidget* m_tree;
  DataDetails* m_details;
  QHash<const DataItem*, QTreeWidgetItem*> m_itemRows;
  QHash<const Step*, QTreeWidgetItem*> m_stepRows;
};

} // namespace Kelvaris::Viewer
