#pragma once

#include "Core/Log.h"

#include <QAbstractTableModel>
#include <QDateTime>

#include <deque>
#include <mutex>

namespace Kelvaris::Viewer {

/// The last entries of the log as a table: time, level, who speaks, how often, message. What is said over and over, as
/// by a step that fails on each image of a stream, is one line: an entry that equals one of the last few lines counts
/// there, and gives it its time. Entries may come from any thread; they reach the table on the thread of this object,
/// many in one go.
class LogModel : public QAbstractTableModel {
  Q_OBJECT

public:
  enum Column : int { Time, Level, Source, Count, Message, Columns };
  static constexpr int kLevelRole = Qt::UserRole;
  /// Older lines go.
  static constexpr int kKept = 2000;
  /// So many lines back a repeated entry is looked for: several steps may fail in turn.
  static constexpr int kRecent = 4;

  explicit LogModel(QObject* parent = nullptr);
  ~LogModel() override;

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

  void clear();

private:
  struct Line {
    QDateTime time;
    int level;
    QString source, message;
    int count = 1; ///< entries that it stands for

    bool says(const Line& other) const {
      return level == other.level && source == other.source && message == other.message;
    }
  };

  /// What other threads have logged and the table doesn't have yet.
  struct Inbox {
    std::mutex mutex;
    std::deque<Line> lines;
  };

  /// Counts the line with an equal one among the last few. Its index; -1 if there is none.
  static int repeat(std::deque<Line>& lines, const Line& line);
  void takeInbox();

  std::deque<Line> m_lines;
  Inbox m_inbox;
  int m_sink;
};

} // namespace Kelvaris::Viewer
