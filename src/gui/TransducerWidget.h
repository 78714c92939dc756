#pragma once

#include "Core/Properties.h"
#include "model/Transducer.h"

#include <QWidget>

#include <memory>

namespace Kelvaris::US {

class Ui_TransducerWidget;

/// Edits a transducer. What the boxes hold goes into properties under the model's keys, from which the transducer is
/// configured. A value that a box can't show stays as it is until the user edits that box.
///
/// | shown           | key             | unit | default  |
/// | type            | type            |      | "linear" |
/// | Pitch           | pitch           | mm   | 0.15     |
/// | Number elements | numberElements  |      | 64       |
/// | Radius          | radiusCurvature | mm   | 50       |
class TransducerWidget : public QWidget {
  Q_OBJECT

public:
  explicit TransducerWidget(QWidget* parent = nullptr);
  ~TransducerWidget() override;

  const Transducer& transducer() const { return m_transducer; }
  /// Shows it; no signal.
  void setTransducer(const Transducer& transducer);
  /// Returns to the defaults, with a signal.
  void setDefaultParameters();

Q_SIGNALS:
  /// After every edit that makes a transducer: a pitch above 0 and at least two elements. Others leave it as it was;
  /// the box shows its value again once it is left.
  void transducerChanged(const Kelvaris::US::Transducer& transducer);

protected:
  void changeEvent(QEvent* event) override;

private:
  void initGUI();
  void updateGUI();
  bool hasElements() const;
  bool hasPitch() const;
  void restoreIgnored();
  void createAndSignalTransducer();
  void switchLinear();
  void switchConvex();

  std::unique_ptr<Ui_TransducerWidget> m_ui;
  Transducer m_transducer;
  Properties m_properties;
};

} // namespace Kelvaris::US
