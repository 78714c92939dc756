#pragma once

#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Stream/Stream.h"

#include <atomic>
#include <memory>

namespace Kelvaris {

/// An algorithm whose output is a stream. The stream belongs to the algorithm until takeOutput() hands it over.
class StreamAlgorithm : public Algorithm {
public:
  /// The output, also after takeOutput(); null when it has gone. Thread-safe.
  Stream* stream() const { return m_stream; }
  /// The same.
  Stream* outputStream() const { return stream(); }
  OwningDataList takeOutput() override;
  /// True while the output is there and belongs to whoever took it.
  bool isOutputTaken() const { return stream() && !m_owned; }
  /// Gives up the stream where compute() can make another one; nothing otherwise.
  virtual void resetStream() {}

protected:
  explicit StreamAlgorithm(std::unique_ptr<Stream> stream = nullptr);
  /// The new output; may be null. Deletes the one before, unless it has been taken.
  void replaceStream(std::unique_ptr<Stream> stream);

private:
  std::atomic<Stream*> m_stream = nullptr;
  boost::signals2::scoped_connection m_closedConnection;
  std::unique_ptr<Stream> m_owned;
};

} // namespace Kelvaris
