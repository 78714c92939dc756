#pragma once

#include "Core/Configurable.h"
#include "Core/Signal.h"
#include "Lib/Data.h"

#include <memory>
#include <string>

namespace Kelvaris {

/// One emission of a stream.
class StreamData {
public:
  virtual ~StreamData() = default;

  /// When the device took the data, and when it arrived here; both in milliseconds.
  double timestampDevice() const { return m_timestampDevice; }
  void setTimestampDevice(double milliseconds) { m_timestampDevice = milliseconds; }
  double timestampArrival() const { return m_timestampArrival; }
  void setTimestampArrival(double milliseconds) { m_timestampArrival = milliseconds; }

private:
  double m_timestampDevice = 0.0;
  double m_timestampArrival = 0.0;
};

/// A live source of data.
class Stream : public Data, public Configurable {
public:
  explicit Stream(std::string name);
  ~Stream() override;

  Kind kind() const override { return m_kind; }
  void setKind(Kind kind) { m_kind = kind; }
  Modality modality() const override { return m_modality; }
  void setModality(Modality modality) { m_modality = modality; }

  /// Emitted for every piece of data, on the thread that made it. Slots must not throw.
  SignalImpl<const std::shared_ptr<const StreamData>&> dataSignal;
  /// Emitted once, when the stream goes away.
  SignalImpl<> closedSignal;

private:
  Kind m_kind = OtherStreamKind;
  Modality m_modality = UnknownModality;
};

} // namespace Kelvaris
