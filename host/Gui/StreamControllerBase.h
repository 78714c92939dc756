#pragma once

#include "Core/Configurable.h"
#include "Gui/Controller.h"
#include "Lib/AlgorithmController.h"
#include "Stream/StreamAlgorithm.h"

#include <QString>
#include <QWidget>

namespace Kelvaris {

class StreamControls;

/// Base of the panels of algorithms whose output is a stream. Settings of the panel are those of the algorithm.
class StreamControllerBase : public QWidget, public AlgorithmController, public Controller, public Configurable {
  Q_OBJECT

public:
  /// The algorithm must outlive the panel, or the panel must forget it. Throws std::invalid_argument for null,
  /// std::runtime_error without a QApplication.
  explicit StreamControllerBase(StreamAlgorithm* algorithm);

  QWidget* widget() override { return this; }
  /// Runs the algorithm if that has no stream (needsCompute()); puts it on the window's data list, unless it has been
  /// taken; and shows the stream's controls (StreamControls) below what is in the panel's layout, which may be any. If
  /// the algorithm fails, also by an exception, the controls say so. Harmless when called again, which looks for a
  /// stream anew.
  void init() override;

  /// Both do nothing once the algorithm has been forgotten.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;

protected:
  StreamAlgorithm& streamAlgorithm() const { return *m_algorithm; }
  /// The algorithm is about to go before the panel.
  void forgetAlgorithm() { m_algorithm = nullptr; }
  /// For panels that have their own "Start" and "Stop": the controls come without. To be called before init().
  void leaveOutStartStop() { m_hasStartStop = false; }
  /// For outputs that run as their inputs do: nothing but messages is shown. To be called before init().
  void leaveOutControls() { m_hasControls = false; }
  /// Whether init() runs the algorithm.
  virtual bool needsCompute() const { return !m_algorithm->stream(); }

  /// Why the algorithm failed when init() ran it last; empty if it didn't.
  const QString& failure() const { return m_failure; }

private:
  /// Runs the algorithm. Returns what went wrong; empty for nothing.
  QString compute();
  void addControls();

  StreamAlgorithm* m_algorithm; ///< null when it has been forgotten
  StreamControls* m_controls = nullptr;
  QString m_failure;
  bool m_hasStartStop = true, m_hasControls = true;
};

} // namespace Kelvaris
