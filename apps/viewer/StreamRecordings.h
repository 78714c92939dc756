#pragma once

#include "viewer/CoalescedCall.h"
#include "viewer/StreamCapture.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace Kelvaris::Viewer {

class DataItem;

/// The recordings of live streams that are going on, one a stream at most. For the main thread.
class StreamRecordings : public QObject {
  Q_OBJECT

public:
  using Take = std::function<void(DataItem& stream, std::unique_ptr<SharedImageSet> images)>;
  /// `take` gets what has been recorded.
  explicit StreamRecordings(Take take);

  /// Of the next emissions (0: until stop()). Refused by failed() for what is no stream, or is being recorded already.
  void start(DataItem& stream, int emissions);
  /// Hands over what there is, or says by failed() that there is nothing. Must come before the stream goes.
  void stop(DataItem& stream);
  void stopAll();
  bool isEmpty() const { return m_recordings.empty(); }
  bool isRecording(const DataItem& stream) const;
  /// Gives up all of them.
  void clear() { m_recordings.clear(); }

Q_SIGNALS:
  /// A few times a second at most; 0 when the recording has ended.
  void changed(Kelvaris::Viewer::DataItem* stream, int emissions);
  void failed(const QString& text);

private:
  struct Recording {
    DataItem* stream;
    std::unique_ptr<StreamCapture> capture;
  };
  void report();

  Take m_take;
  CoalescedCall m_reports;
  std::vector<Recording> m_recordings; ///< last: they request reports
};

} // namespace Kelvaris::Viewer
