#include "viewer/DataListPanel.h"

#include "viewer/DataDetails.h"
#include "viewer/Workspace.h"

#include "Core/LongWork.h"
#include "Gui/QtHelpers.h"

#include <QAction>
#include <QHeaderView>
#include <QKeyEvent>
#include <QSplitter>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <chrono>
#include <utility>

namespace Kelvaris::Viewer {
namespace {

constexpr std::chrono::milliseconds kRefreshInterval{500};

enum Column : int { Name, Kind, Size, Components, Columns };

QString kindOf(const DataItem& item) {
  switch (item.data().kind()) {
  case Data::OneImage:
    return DataListPanel::tr("image");
  case Data::OneVolume:
    return DataListPanel::tr("volume");
  case Data::Images:
    return DataListPanel::tr("images");
  case Data::Volumes:
    return DataListPanel::tr("volumes");
  case Data::ImageStreamKind:
    return DataListPanel::tr("live images");
  case Data::VolumeStreamKind:
    return DataListPanel::tr("live volumes");
  case Data::OtherStreamKind:
    return DataListPanel::tr("live");
  default:
    return DataListPanel::tr("empty");
  }
}

/// Of the images, and how many there are: "32 of 128 x 2688 x 5, int16".
QString sizeOf(const DataItem& item) {
  const SharedImageSet* const images = item.images();
  if (!images || images->size() == 0) return {};
  const ImageDescriptor& first = images->get(0).descriptor();
  QString text = QStringLiteral("%1 x %2").arg(first.width()).arg(first.height());
  if (first.slices() > 1) text += QStringLiteral(" x %1").arg(first.slices());
  text += ", " + QString::fromStdString(ImageDescriptor::pixelTypeName(first.pixelType()));
  if (first.channels() > 1) text += QStringLiteral(" x %1").arg(first.channels());
  return images->size() == 1 ? text : DataListPanel::tr("%1 of %2").arg(images->size()).arg(text);
}

QString stateText(const Step& step) {
  switch (step.state()) {
  case Step::State::Waiting:
    return DataListPanel::tr("waiting");
  case Step::State::Running:
    return DataListPanel::tr("running");
  case Step::State::Failed:
    return DataListPanel::tr("failed");
  default:
    return DataListPanel::tr("no result yet");
  }
}

} // namespace

DataListPanel::DataListPanel(Workspace& workspace, QWidget* parent)
    : QWidget(parent),
      m_workspace(workspace),
      m_tree(&QtHelpers::make<QTreeWidget>(this)),
      m_details(&QtHelpers::make<DataDetails>(this)) {
  m_tree->setObjectName("dataList");
  m_tree->setAccessibleName(tr("Data"));
  m_tree->setColumnCount(Columns);
  m_tree->setHeaderLabels({tr("Name"), tr("Kind"), tr("Size"), tr("Components")});
  m_tree->headerItem()->setToolTip(Size, tr("How many of width x height x slices, sample type x samples a pixel"));
  m_tree->setSelectionMode(QAbstractItemView::ExtendedSelection);
  m_tree->setEditTriggers(QAbstractItemView::EditKeyPressed);
  m_tree->setContextMenuPolicy(Qt::ActionsContextMenu);
  m_tree->setUniformRowHeights(true);
  m_tree->setIndentation(14);
  const QFontMetrics metrics = fontMetrics();
  m_tree->header()->resizeSection(Name, metrics.horizontalAdvance("      Log Compression  "));
  m_tree->header()->resizeSection(Kind, metrics.horizontalAdvance("live volumes    "));
  m_tree->header()->resizeSection(Size, metrics.horizontalAdvance("32 of 250 x 350, uint8  "));
  m_details->setObjectName("dataDetails");
  m_details->setAccessibleName(tr("Details of the selected data"));

  auto& splitter = QtHelpers::make<QSplitter>(this, Qt::Vertical);
  splitter.addWidget(m_tree);
  splitter.addWidget(m_details);
  splitter.setChildrenCollapsible(false);
  splitter.setSizes({200, 200});
  auto& layout = QtHelpers::make<QVBoxLayout>(this);
  layout.setContentsMargins(0, 0, 0, 0);
  layout.addWidget(&splitter);
  setFocusProxy(m_tree);
  setMinimumWidth(metrics.horizontalAdvance('x') * 24);

  connect(m_tree, &QTreeWidget::itemSelectionChanged, this, [this] {
    updateDetails();
    Q_EMIT selectionChanged();
  });
  // Streams tell nobody that they are set to something else.
  auto& refresh = QtHelpers::make<QTimer>(this);
  connect(&refresh, &QTimer::timeout, this, [this] {
    if (LongWork::isGoingOn()) return; // a stream that simulates can't be asked
    bool haveKindsChanged = false;     // a step's output isn't known before its first emission
    for (const auto& item : m_workspace.items())
      if (item->stream() && rowOf(item.get())->text(Kind) != kindOf(*item)) {
        fill(*item);
        haveKindsChanged = true;
      }
    const std::vector<DataItem*> selected = selectedItems();
    if (m_details->isVisible() && selected.size() == 1 && selected.front()->stream()) updateDetails();
    if (haveKindsChanged) Q_EMIT kindsChanged();
  });
  refresh.start(kRefreshInterval);
  connect(m_tree, &QTreeWidget::itemActivated, this, &DataListPanel::activated);
  connect(m_tree, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* row, int column) {
    if (column != Name) return;
    for (auto it = m_itemRows.cbegin(); it != m_itemRows.cend(); ++it)
      if (it.value() == row) m_workspace.rename(const_cast<DataItem&>(*it.key()), row->text(Name));
  });
  connect(&m_workspace, &Workspace::itemAdded, this, [this](DataItem* item) { addItem(*item); });
  connect(&m_workspace, &Workspace::itemChanged, this, [this](DataItem* item) {
    fill(*item);
    if (rowOf(item)->isSelected()) updateDetails();
  });
  connect(&m_workspace, &Workspace::itemAboutToBeRemoved, this,
          [this](DataItem* item) { removeRow(m_itemRows.take(item)); });
  connect(&m_workspace, &Workspace::stepAdded, this, [this](Step* step) { addStep(*step); });
  connect(&m_workspace, &Workspace::stepChanged, this, [this](Step* step) { fill(*step); });
  connect(&m_workspace, &Workspace::stepAboutToBeRemoved, this,
          [this](Step* step) { removeRow(m_stepRows.take(step)); });
}

std::vector<DataItem*> DataListPanel::selectedItems() const {
  std::vector<DataItem*> selected;
  for (const auto& item : m_workspace.items())
    if (const QTreeWidgetItem* row = rowOf(item.get()); row && row->isSelected()) selected.push_back(item.get());
  return selected;
}

Step* DataListPanel::selectedStep() const {
  for (const auto& step : m_workspace.steps())
    if (const QTreeWidgetItem* row = m_stepRows.value(step.get()); row && row->isSelected()) return step.get();
  return nullptr;
}

void DataListPanel::select(const DataItem& item) {
  if (QTreeWidgetItem* row = rowOf(&item))
    m_tree->setCurrentItem(row, Name, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void DataListPanel::selectCurrent() {
  if (m_tree->selectedItems().isEmpty() && m_tree->currentItem()) m_tree->currentItem()->setSelected(true);
}

void DataListPanel::editName() {
  if (QTreeWidgetItem* row = m_tree->currentItem()) m_tree->editItem(row, Name);
}

void DataListPanel::setActions(const QList<QAction*>& actions) {
  m_tree->addActions(actions);
}

void DataListPanel::insert(std::unique_ptr<QTreeWidgetItem> row, const std::vector<DataItem*>& inputs) {
  QTreeWidgetItem* const parent = inputs.empty() ? nullptr : rowOf(inputs.front());
  if (parent) {
    parent->addChild(row.release());
    parent->setExpanded(true);
  } else {
    m_tree->addTopLevelItem(row.release());
  }
}

void DataListPanel::addItem(DataItem& item) {
  const QSignalBlocker blocker(m_tree);
  auto row = std::make_unique<QTreeWidgetItem>();
  row->setFlags(row->flags() | Qt::ItemIsEditable);
  m_itemRows.insert(&item, row.get());
  if (const Step* step = item.producer()) {
    insert(std::move(row), step->inputs());
    removeRow(m_stepRows.take(step));
  } else {
    insert(std::move(row), {});
  }
  fill(item);
}

void DataListPanel::addStep(Step& step) {
  if (step.output()) return;
  auto row = std::make_unique<QTreeWidgetItem>();
  QFont font = m_tree->font();
  font.setItalic(true);
  for (int column = 0; column < Columns; ++column)
    row->setFont(column, font);
  m_stepRows.insert(&step, row.get());
  insert(std::move(row), step.inputs());
  fill(step);
}

void DataListPanel::removeRow(QTreeWidgetItem* row) {
  if (!row) return;
  // What is below has lost its place, but not its entry.
  QTreeWidgetItem* const root = m_tree->invisibleRootItem();
  while (row->childCount() > 0)
    root->addChild(row->takeChild(0));
  delete row;
}

void DataListPanel::fill(DataItem& item) {
  QTreeWidgetItem* const row = rowOf(&item);
  if (!row) return;
  const QSignalBlocker blocker(m_tree);
  const QStringList components = componentsOf(item);
  row->setText(Name, item.name());
  row->setText(Kind, kindOf(item));
  row->setText(Size, sizeOf(item));
  row->setText(Components, components.join(", "));
  QString tip = item.name() + '\n' + item.description();
  if (!components.isEmpty()) tip += '\n' + tr("Components: %1").arg(components.join(", "));
  if (!item.file().empty()) tip += '\n' + tr("File: %1").arg(QString::fromStdString(item.file().string()));
  for (int column = 0; column < Columns; ++column)
    row->setToolTip(column, tip);
}

void DataListPanel::fill(Step& step) {
  QTreeWidgetItem* const row = m_stepRows.value(&step);
  if (!row) return;
  const QSignalBlocker blocker(m_tree);
  row->setText(Name, QString::fromStdString(step.descriptor().displayName()));
  row->setText(Kind, stateText(step));
  for (int column = 0; column < Columns; ++column)
    row->setToolTip(column, step.error());
}

void DataListPanel::updateDetails() {
  const std::vector<DataItem*> selected = selectedItems();
  m_details->show(selected.size() == 1 ? selected.front() : nullptr);
}

} // namespace Kelvaris::Viewer
