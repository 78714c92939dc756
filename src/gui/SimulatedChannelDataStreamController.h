#pragma once

#include "Core/Signal.h"
#include "Gui/StreamControllerBase.h"
#include "Stream/CreateStreamIoAlgorithm.h"
#include "simulation/SimulatedChannelDataStream.h"

#include <memory>

class QComboBox;

namespace Kelvaris::US {

class AcquisitionSequenceWidget;
class Ui_SimulatedChannelDataStreamController;

/// The panel of a simulated stream. Every change reaches the stream's setters at once, the acquisition sequence when it
/// is applied. With SIMUS they simulate right here, on the main thread, as it must be: a program that shows windows
/// keeps them alive meanwhile (LongWork). A failure, also that the user gave up, shows in "Simulator" jumping to
/// "Simple". As each change takes its time then, a number counts once it has been typed in full.
///
/// The stream may go away while the panel shows; the panel is then disabled. It must do so on the main thread.
class SimulatedChannelDataStreamController : public StreamControllerBase {
  Q_OBJECT

public:
  using StreamMaker = CreateStreamIoAlgorithm<SimulatedChannelDataStream, true, true>;

  explicit SimulatedChannelDataStreamController(StreamMaker* algorithm);
  ~SimulatedChannelDataStreamController() override;

  /// Shows the stream's sequence; gives it its own, one frame of focused beams, if it has none. Throws
  /// std::runtime_error if the algorithm's stream is of another class. Without any stream the panel stays disabled.
  void init() override;

private Q_SLOTS:
  void onStartStopClicked();
  void onAcquisitionSequenceChanged(const Kelvaris::US::AcquisitionSequence& sequence);
  void onAmplitudeChanged(double);
  void onPhantomOriginChanged(double);
  void onInterEventPhantomMotionChanged(double);
  void onSimulatorMethodChanged(int index);
  void onPhantomTypeChanged(int index);
  void updateGUI();

private:
  void setupGUI();
  void onDataLayoutChanged(const QComboBox& changed);
  /// Calls `action` with the stream, if it is still there; after the simulation, if one is going on. What it throws is
  /// logged.
  template <typename Action> void withStream(Action action);

  SimulatedChannelDataStream* m_stream = nullptr;
  std::unique_ptr<Ui_SimulatedChannelDataStreamController> m_ui;
  AcquisitionSequenceWidget* m_sequenceWidget; ///< owned by the panel
  BlockingConnection m_stateConnection;        ///< these two last: they end first
  BlockingConnection m_streamGoneConnection;
};

} // namespace Kelvaris::US
