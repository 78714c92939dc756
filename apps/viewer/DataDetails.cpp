#include "viewer/DataDetails.h"

#include "viewer/DataItem.h"

#include "Core/Properties.h"
#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"

#include <QHeaderView>
#include <QScrollBar>

#include <algorithm>
#include <memory>

namespace Kelvaris::Viewer {
namespace {

/// Longest text that is shown whole, and most parts of one name.
constexpr int kShownText = 200, kShownParts = 20;

QTreeWidgetItem& addRow(QTreeWidgetItem& parent, const QString& name, const QString& value = {}) {
  const QStringList texts{name, value.size() > kShownText ? value.left(kShownText) + "…" : value};
  QTreeWidgetItem& row = *std::make_unique<QTreeWidgetItem>(&parent, texts).release();
  row.setToolTip(0, name);
  row.setToolTip(1, value.left(2000));
  return row;
}

void addProperties(QTreeWidgetItem& parent, const Properties& properties) {
  for (const auto& [key, value] : properties.params())
    addRow(parent, QString::fromStdString(key), QString::fromStdString(value));
  QHash<QString, int> counts;
  for (const auto& [key, child] : properties.children()) {
    const QString name = QString::fromStdString(key);
    const int index = counts[name]++;
    if (index > kShownParts) continue;
    const auto count = properties.allSubProperties(key).size();
    if (index == kShownParts)
      addRow(parent, QStringLiteral("…"), DataDetails::tr("%1 more").arg(static_cast<int>(count) - kShownParts));
    else
      addProperties(addRow(parent, count > 1 ? QStringLiteral("%1 %2").arg(name).arg(index) : name), child);
  }
}

void addComponents(QTreeWidgetItem& parent, const DataComponentList& components) {
  for (const auto& component : components) {
    Properties contents;
    component->configuration(&contents);
    addProperties(addRow(parent, QString::fromStdString(component->id())), contents);
  }
}

QString numbers(const Eigen::Vector3d& v) {
  return QStringLiteral("%1 x %2 x %3").arg(v.x(), 0, 'g', 6).arg(v.y(), 0, 'g', 6).arg(v.z(), 0, 'g', 6);
}

void addImages(QTreeWidgetItem& parent, const SharedImageSet& images) {
  addRow(parent, DataDetails::tr("images"), QString::number(images.size()));
  if (images.size() == 0) return;
  const ImageDescriptor& descriptor = images.get(0).descriptor();
  addRow(parent, DataDetails::tr("first image"), QString::fromStdString(descriptor.toString()))
      .setToolTip(1, DataDetails::tr("pixel type, width x height x slices, channels of a pixel"));
  addRow(parent, DataDetails::tr("spacing"), numbers(descriptor.spacing()) + (descriptor.isMetric() ? " mm" : ""));
  if (descriptor.shift() != 0.0 || descriptor.scale() != 1.0)
    addRow(parent, DataDetails::tr("value"),
           DataDetails::tr("stored / %1 - %2").arg(descriptor.scale()).arg(descriptor.shift()));
  addRow(parent, DataDetails::tr("timestamps"),
         QStringLiteral("%1 … %2 ms").arg(images.timestamp(0)).arg(images.timestamp(images.size() - 1)));
}

} // namespace

DataDetails::DataDetails(QWidget* parent) : QTreeWidget(parent) {
  setColumnCount(2);
  setHeaderLabels({tr("Property"), tr("Value")});
  setUniformRowHeights(true);
  setIndentation(14);
  setSelectionMode(ExtendedSelection);
  header()->resizeSection(0, fontMetrics().horizontalAdvance("receiveSamplingFrequency") + 30);
  connect(this, &QTreeWidget::itemCollapsed, this, &DataDetails::remember);
  connect(this, &QTreeWidget::itemExpanded, this, &DataDetails::remember);
}

void DataDetails::show(const DataItem* item) {
  const ImageStream* const stream = item ? item->stream() : nullptr;
  Properties settings;
  if (stream) stream->configuration(&settings);
  const int id = stream ? item->id() : 0, size = stream ? stream->size() : 0;
  const QString description = item ? item->description() : QString();
  if (stream && id == m_stream && size == m_size && description == m_description && settings == m_settings) return;
  m_stream = id;
  m_size = size;
  m_description = description;
  m_settings = settings;

  const QSignalBlocker blocker(this);
  const int scrolled = verticalScrollBar()->value();
  clear();
  if (!item) return;
  QTreeWidgetItem& root = *invisibleRootItem();
  addRow(root, tr("data"), description);
  if (!item->file().empty()) addRow(root, tr("file"), QString::fromStdString(item->file().string()));
  if (const SharedImageSet* images = item->images()) {
    addImages(root, *images);
    if (!images->properties().empty()) addProperties(addRow(root, tr("properties")), images->properties());
    addComponents(root, images->components());
    if (images->size() > 0) addComponents(root, images->elementwiseComponents().components(0));
  } else if (stream) {
    addRow(root, tr("images at a time"), QString::number(size));
    if (!settings.empty()) addProperties(addRow(root, tr("settings")), settings);
  }
  for (int i = 0; i < root.childCount(); ++i)
    root.child(i)->setExpanded(!m_closed.contains(root.child(i)->text(0)));
  verticalScrollBar()->setValue(scrolled);
}

void DataDetails::remember() {
  for (int i = 0; i < topLevelItemCount(); ++i) {
    const QTreeWidgetItem& row = *topLevelItem(i);
    if (row.childCount() == 0) continue;
    if (row.isExpanded())
      m_closed.remove(row.text(0));
    else
      m_closed.insert(row.text(0));
  }
}

QStringList componentsOf(const DataItem& item) {
  QStringList ids;
  const auto collect = [&ids](const DataComponentList& components) {
    for (const auto& component : components)
      ids.append(QString::fromStdString(component->id()));
  };
  if (const SharedImageSet* images = item.images()) {
    collect(images->components());
    if (images->size() > 0) collect(images->elementwiseComponents().components(0));
  }
  ids.removeDuplicates();
  return ids;
}

} // namespace Kelvaris::Viewer
