#include "viewer/LogPanel.h"

#include "viewer/LogModel.h"

#include "Gui/QtHelpers.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QTableView>
#include <QVBoxLayout>

#include <memory>

namespace Kelvaris::Viewer {
namespace {

/// The lines of a level and above.
class FromLevel : public QSortFilterProxyModel {
public:
  using QSortFilterProxyModel::QSortFilterProxyModel;

  void setLevel(int level) {
    m_level = level;
    invalidateFilter();
  }

protected:
  bool filterAcceptsRow(int row, const QModelIndex& parent) const override {
    return sourceModel()->index(row, 0, parent).data(LogModel::kLevelRole).toInt() >= m_level;
  }

private:
  int m_level = Log::Info;
};

} // namespace

LogPanel::LogPanel(LogModel& log, QWidget* parent)
    : QWidget(parent), m_level(&QtHelpers::make<QComboBox>(this)), m_table(&QtHelpers::make<QTableView>(this)) {
  auto& fromLevel = QtHelpers::make<FromLevel>(this);
  m_shown = &fromLevel;
  m_shown->setSourceModel(&log);

  m_level->setObjectName("logLevel");
  m_level->setToolTip(tr("What is less serious isn't shown"));
  m_level->addItem(tr("Debug"), static_cast<int>(Log::Debug));
  m_level->addItem(tr("Info"), static_cast<int>(Log::Info));
  m_level->addItem(tr("Warnings"), static_cast<int>(Log::Warning));
  m_level->addItem(tr("Errors"), static_cast<int>(Log::Error));
  m_level->setCurrentIndex(1);
  connect(m_level, qOverload<int>(&QComboBox::currentIndexChanged), this,
          [this, &fromLevel] { fromLevel.setLevel(m_level->currentData().toInt()); });

  m_table->setObjectName("logTable");
  m_table->setModel(m_shown);
  m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
  m_table->setTabKeyNavigation(false);
  m_table->setShowGrid(false);
  m_table->setWordWrap(false);
  m_table->verticalHeader()->hide();
  m_table->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 4);
  m_table->setMinimumHeight(3 * fontMetrics().height()); // on small screens the picture needs the room
  m_table->horizontalHeader()->setStretchLastSection(true);
  m_table->horizontalHeader()->setHighlightSections(false);
  m_table->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  const QFontMetrics metrics = fontMetrics();
  m_table->setColumnWidth(LogModel::Time, metrics.horizontalAdvance("00:00:00.000") + 16);
  m_table->setColumnWidth(LogModel::Level, metrics.horizontalAdvance(tr("Warning")) + 20);
  m_table->setColumnWidth(LogModel::Source, metrics.horizontalAdvance("ChannelDataFilterAlgorithm") + 16);
  m_table->setColumnWidth(LogModel::Count, metrics.horizontalAdvance("x 00000") + 16);

  auto& copyButton = QtHelpers::make<QPushButton>(this, tr("Copy"));
  copyButton.setToolTip(tr("Copy the selected lines, or all that are shown, to the clipboard (Ctrl+C)"));
  connect(&copyButton, &QPushButton::clicked, this, &LogPanel::copy);
  auto& copyAction = QtHelpers::make<QAction>(m_table);
  copyAction.setShortcut(QKeySequence::Copy);
  copyAction.setShortcutContext(Qt::WidgetShortcut);
  connect(&copyAction, &QAction::triggered, this, &LogPanel::copy);
  m_table->addAction(&copyAction);
  auto& clearButton = QtHelpers::make<QPushButton>(this, tr("Clear"));
  clearButton.setToolTip(tr("Remove all lines"));
  connect(&clearButton, &QPushButton::clicked, &log, &LogModel::clear);

  auto& label = QtHelpers::make<QLabel>(this, tr("Show from:"));
  label.setBuddy(m_level);
  auto bar = std::make_unique<QHBoxLayout>();
  bar->addWidget(&label);
  bar->addWidget(m_level);
  bar->addStretch(1);
  bar->addWidget(&copyButton);
  bar->addWidget(&clearButton);
  auto& layout = QtHelpers::make<QVBoxLayout>(this);
  layout.setContentsMargins(4, 4, 4, 4);
  layout.addLayout(bar.release());
  layout.addWidget(m_table, 1);

  // New lines come into sight unless the user has scrolled back.
  connect(m_shown, &QAbstractItemModel::rowsAboutToBeInserted, this, [this] {
    const QScrollBar& scroll = *m_table->verticalScrollBar();
    m_table->setProperty("follows", scroll.value() == scroll.maximum());
  });
  connect(m_shown, &QAbstractItemModel::rowsInserted, this, [this] {
    if (m_table->property("follows").toBool()) m_table->scrollToBottom();
  });
}

void LogPanel::copy() const {
  QStringList lines;
  const bool all = !m_table->selectionModel()->hasSelection();
  for (int row = 0; row < m_shown->rowCount(); ++row) {
    if (!all && !m_table->selectionModel()->isRowSelected(row, {})) continue;
    QStringList cells;
    for (int column = 0; column < LogModel::Columns; ++column)
      cells.append(m_shown->index(row, column).data().toString());
    lines.append(cells.join('\t'));
  }
  QApplication::clipboard()->setText(lines.join('\n'));
}

} // namespace Kelvaris::Viewer
