#pragma once

#include "Core/Properties.h"
#include "model/FrameAcquisition.h"

#include <QWidget>

#include <memory>
#include <utility>
#include <variant>
#include <vector>

class QDoubleSpinBox;
class QSpinBox;

namespace Kelvaris::US {

class Ui_FrameAcquisitionWidget;

/// The receive sampling frequencies that a device offers: any, or those from the first to the second, in Hz.
using ReceiveSamplingFrequencyOptions = std::variant<std::monostate, std::pair<double, double>>;

/// Edits the parameters of a frame acquisition (FrameParameters). What the boxes hold goes into properties under the
/// model's keys, from which the frame acquisition is configured. A value that a box can't show stays as it is until the
/// user edits that box. Events that weren't made from parameters stay, too, with no scan type chosen, until the user
/// chooses one: then a frame is made of what is shown.
///
/// | shown                                 | key                      | one shown is        | default |
/// | Focused, Plane, Diverging             | eventType                |                     | 0       |
/// | End depth                             | endDepth                 | 1 mm                | 20      |
/// | Pulse frequency                       | pulseFrequency           | 1e6 Hz              | 2       |
/// | Pulse length [cycles]                 | pulseLength              | 1 cycle             | 2       |
/// | Speed of sound                        | speedOfSound             | 1000 mm/s           | 1540    |
/// | Transmit, Receive aperture            | max...Aperture           | 1 element           | 64      |
/// | Receive sampling frequency            | receiveSamplingFrequency | 1e6 Hz              | 10      |
/// | Focal depth                           | focalDepth               | 1 mm                | 40      |
/// | Steering angle                        | steeringAngle            | 1 degree = pi / 180 | 0       |
/// | Number beams                          | numberFocusedBeamsTotal  | 1                   | 16      |
/// | Plane angle range                     | planeAngleRange          | 1 degree            | 30      |
/// | Number apertures (plane, diverging)   | numberApertures          | 1                   | 4       |
/// | Number emissions per aperture (alike) | numberEventsPerAperture  | 1                   | 16      |
/// | Virtual source distance               | virtualSourceDistance    | 1 mm                | 10      |
/// | Steering angle range                  | steeringAngleRange       | 1 degree            | 30      |
///
/// Counts below 1 are ignored, and so are depths, lengths, frequencies and speeds that aren't above 0; the box shows
/// the value that holds again once it is left.
class FrameAcquisitionWidget : public QWidget {
  Q_OBJECT

public:
  /// The array is one of 64 elements, 0.15 mm apart, until setTransducer().
  explicit FrameAcquisitionWidget(QWidget* parent = nullptr);
  ~FrameAcquisitionWidget() override;

  const FrameAcquisition& frameAcquisition() const { return m_frameAcquisition; }
  /// True if the frame acquisition is the one that is shown. False if no frame can be made of what is shown, as the log
  /// says; it is then the last one that could be.
  bool isUpToDate() const { return m_upToDate; }
  /// Shows it; no signal.
  void setFrameAcquisition(const FrameAcquisition& frameAcquisition);
  /// Makes the frame for this array; no signal.
  void setTransducer(const Transducer& transducer);
  /// Limits what can be entered; the frame acquisition stays as it is.
  void setReceiveSamplingFrequencyOptions(const ReceiveSamplingFrequencyOptions& options);
  /// Returns to the defaults, with a signal.
  void setDefaultParameters();

Q_SIGNALS:
  /// After every edit that isn't ignored, also where no frame can be made of it.
  void frameAcquisitionChanged(const Kelvaris::US::FrameAcquisition& frameAcquisition);

protected:
  void changeEvent(QEvent* event) override;

private:
  /// The editors of one number each, in the order in which they are updated.
  struct RealEditor {
    QDoubleSpinBox* box;
    const char* key;
    double unit; ///< of what is shown, in that of the model
    double defaultValue;
    bool positive; ///< other values are ignored
  };
  struct CountEditor {
    QSpinBox* box;
    const char* key;
    int defaultValue;
  };

  void initGUI();
  /// With `signalChange`, creates and signals after it.
  void updateGUI(bool signalChange);
  void createAndSignalFrameAcquisition();
  void configureFrameAcquisition();
  void setMissingDefaults();
  void switchTo(int eventType);
  void switchFocused();
  void switchPlaneWave();
  void switchDivergingWave();

  std::unique_ptr<Ui_FrameAcquisitionWidget> m_ui;
  FrameAcquisition m_frameAcquisition;
  bool m_upToDate = false;
  Properties m_properties;
  ReceiveSamplingFrequencyOptions m_receiveSamplingFrequencyOptions;
  std::vector<RealEditor> m_realEditors;
  std::vector<CountEditor> m_countEditors;
};

} // namespace Kelvaris::US
