#pragma once

#include "Core/Signal.h"
#include "Lib/Algorithm.h"
#include "Stream/Stream.h"

#include <memory>

namespace Kelvaris {

/// An algorithm whose output is a stream. The stream belongs to the algorithm until takeOutput() hands it over.
class StreamAlgorithm : public Algorithm {
public:
  /// The output, also after takeOutput(); null when it has gone.
  Stream* stream() const { return m_stream; }
  OwningDataList takeOutput() override;

protected:
  explicit StreamAlgorithm(std::unique_ptr<Stream> stream);

private:
  Stream* m_stream;
  boost::signals2::scoped_connection m_closedConnection;
  std::unique_ptr<Stream> m_owned;
};

} // namespace Kelvaris
