#pragma once

#include "Core/Log.h"

#include <QAbstractTableModel>
#include <QDateTime>

#include <deque>
#include <mutex>

namespace Kelvaris::Viewer {

/// The last entries of the log as a table: time, level, who speaks, message. Entries may come from any thread; they
/// reach the table on the thread of this object, many in one go.
class LogModel : public QAbstractTableModel {
  Q_OBJECT

public:
  enum Column : int { Time, Level, Source, Message, Columns };
  static constexpr int kLevelRole = Qt::UserRole;
  /// Older entries go.
  static constexpr int kKept = 2000;

  explicit LogModel(QObject* parent = nullptr);
  ~LogModel() override;

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

  void clear();

Q_SIGNALS:
  /// An entry of level Error has come into the table.
  void errorAdded(const QString& source, const QString& message);

private:
  struct Line {
    QDateTime time;
    int level;
    QString source, message;
  };

  /// What other threads have logged and the table doesn't have yet.
  struct Inbox {
    std::mutex mutex;
    std::deque<Line> lines;
  };

  void takeInbox();

  std::deque<Line> m_lines;
  Inbox m_inbox;
  int m_sink;
};

} // namespace Kelvaris::Viewer
