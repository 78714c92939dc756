#include "viewer/LogModel.h"

#include <QColor>
#include <QGuiApplication>
#include <QPalette>

#include <algorithm>

namespace Kelvaris::Viewer {
namespace {

QString levelName(int level) {
  switch (level) {
  case Log::Trace:
    return LogModel::tr("Trace");
  case Log::Debug:
    return LogModel::tr("Debug");
  case Log::Info:
    return LogModel::tr("Info");
  case Log::Warning:
    return LogModel::tr("Warning");
  default:
    return LogModel::tr("Error");
  }
}

/// Readable on a light and on a dark background.
QVariant levelColor(int level) {
  if (level < Log::Warning) return {};
  const bool isDark = QGuiApplication::palette().color(QPalette::Base).lightness() < 128;
  if (level == Log::Warning) return isDark ? QColor(255, 200, 90) : QColor(140, 85, 0);
  return isDark ? QColor(255, 135, 125) : QColor(178, 20, 20);
}

} // namespace

LogModel::LogModel(QObject* parent) : QAbstractTableModel(parent) {
  m_sink = Log::addSink([this](const Log::Entry& entry) {
    const std::scoped_lock lock(m_inbox.mutex);
    const bool isFirst = m_inbox.lines.empty();
    const Line line{QDateTime::currentDateTime(), entry.level, QString::fromStdString(entry.category),
                    QString::fromStdString(entry.message)};
    if (repeat(m_inbox.lines, line) < 0) m_inbox.lines.push_back(line);
    if (m_inbox.lines.size() > kKept) m_inbox.lines.pop_front();
    if (isFirst) QMetaObject::invokeMethod(this, &LogModel::takeInbox, Qt::QueuedConnection);
  });
}

LogModel::~LogModel() {
  Log::removeSink(m_sink);
}

int LogModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(m_lines.size());
}

int LogModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : Columns;
}

QVariant LogModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const Line& line = m_lines[static_cast<std::size_t>(index.row())];
  if (role == kLevelRole) return line.level;
  if (role == Qt::ForegroundRole) return levelColor(line.level);
  if (role == Qt::ToolTipRole && index.column() == Message) return line.message;
  if (role != Qt::DisplayRole) return {};
  switch (index.column()) {
  case Time:
    return line.time.toString("HH:mm:ss.zzz");
  case Level:
    return levelName(line.level);
  case Source:
    return line.source;
  case Count:
    return line.count > 1 ? QStringLiteral("x %1").arg(line.count) : QString();
  default:
    return line.message;
  }
}

QVariant LogModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (role != Qt::DisplayRole || orientation != Qt::Horizontal) return {};
  switch (section) {
  case Time:
    return tr("Time");
  case Level:
    return tr("Level");
  case Source:
    return tr("Source");
  case Count:
    return tr("Times");
  default:
    return tr("Message");
  }
}

void LogModel::clear() {
  beginResetModel();
  m_lines.clear();
  endResetModel();
}

int LogModel::repeat(std::deque<Line>& lines, const Line& line) {
  const int size = static_cast<int>(lines.size());
  for (int i = size - 1; i >= std::max(size - kRecent, 0); --i)
    if (Line& present = lines[static_cast<std::size_t>(i)]; present.says(line)) {
      present.count += line.count;
      present.time = line.time;
      return i;
    }
  return -1;
}

void LogModel::takeInbox() {
  std::deque<Line> lines;
  {
    const std::scoped_lock lock(m_inbox.mutex);
    lines.swap(m_inbox.lines);
  }
  while (!lines.empty()) { // what begins by repeating
    const int row = repeat(m_lines, lines.front());
    if (row < 0) break;
    lines.pop_front();
    Q_EMIT dataChanged(index(row, 0), index(row, Columns - 1));
  }
  if (lines.empty()) return;
  const int surplus = static_cast<int>(m_lines.size() + lines.size()) - kKept;
  if (const int old = std::min(surplus, static_cast<int>(m_lines.size())); old > 0) {
    beginRemoveRows({}, 0, old - 1);
    m_lines.erase(m_lines.begin(), m_lines.begin() + old);
    endRemoveRows();
  }
  const auto first = static_cast<int>(m_lines.size());
  beginInsertRows({}, first, first + static_cast<int>(lines.size()) - 1);
  m_lines.insert(m_lines.end(), lines.begin(), lines.end());
  endInsertRows();
}

} // namespace Kelvaris::Viewer
