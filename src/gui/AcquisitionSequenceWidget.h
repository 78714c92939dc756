#pragma once

#include "gui/FrameAcquisitionWidget.h"
#include "model/AcquisitionSequence.h"

#include <QWidget>

#include <memory>
#include <vector>

namespace Kelvaris::US {

class TransducerWidget;
class Ui_AcquisitionSequenceWidget;

/// Edits an acquisition sequence: a transducer, and frame acquisitions with an editor each. Edits collect here until
/// the user applies them: then the sequence plays every event of every frame once, frame after frame. Until the first
/// edit, a sequence that was set stays as it is, order and delays included.
class AcquisitionSequenceWidget : public QWidget {
  Q_OBJECT

public:
  /// Offers one frame with the defaults. With `transducerEnabled` false, the user can't edit the transducer.
  AcquisitionSequenceWidget(QWidget* parent, bool transducerEnabled);
  ~AcquisitionSequenceWidget() override;

  /// The sequence applied last, or set since.
  const AcquisitionSequence& acquisitionSequence() const { return m_acquisitionSequence; }
  /// Shows it, dropping edits; no signal.
  void setAcquisitionSequence(const AcquisitionSequence& sequence);
  /// Gives all frames this array: an edit, which `apply` applies at once, with all others.
  void setTransducer(const Transducer& transducer, bool apply);
  /// For all frames, those to come among them.
  void setReceiveSamplingFrequencyOptions(const ReceiveSamplingFrequencyOptions& options);

Q_SIGNALS:
  /// The edits have been applied.
  void acquisitionSequenceChanged(const Kelvaris::US::AcquisitionSequence& sequence);

public Q_SLOTS:
  /// Edits that make no sequence are refused, with an error in the log, and stay as they are.
  void applyConfigurationChanges();
  /// Returns to acquisitionSequence().
  void resetConfigurationChanges();
  /// Gives all frames the transducer that is shown; what they hold then is for the next "Apply".
  void frameAcquisitionChanged();
  void setUserMadeChanges();

protected:
  void changeEvent(QEvent* event) override;

private:
  void initGUI();
  void sizeButtons();
  void updateGUI();
  void setDefaultParameters();
  void addNewFrameAcquisition();
  void addFrameAcquisitionWidget(FrameAcquisitionWidget* widget);
  void removeFrameAcquisitionWidget(int index);
  void clearFrameAcquisitionWidgets();
  /// Of what the editors hold, each event once. Throws std::exception if that makes no sequence.
  AcquisitionSequence editedSequence() const;
  bool createAndSignalAcquisitionSequence();

  std::unique_ptr<Ui_AcquisitionSequenceWidget> m_ui;
  AcquisitionSequence m_acquisitionSequence;
  ReceiveSamplingFrequencyOptions m_receiveSamplingFrequencyOptions;
  bool m_framesChanged = false; ///< the editors hold something else than the sequence
  bool m_userMadeChanges = false;
  std::vector<FrameAcquisitionWidget*> m_frameAcquisitionWidgets; ///< owned by the form
  TransducerWidget* m_transducerWidget;                           ///< owned by the form
};

} // namespace Kelvaris::US
