#pragma once

#include "Core/Properties.h"
#include "Core/Signal.h"
#include "Gui/Controller.h"
#include "Gui/ParameterEditor.h"
#include "Lib/AlgorithmController.h"

#include <QWidget>

#include <atomic>
#include <string>
#include <vector>

class QPushButton;

namespace Kelvaris {

class ParameterBase;

/// The generic form of an algorithm: one editor a registered parameter (see makeParameterEditor), in the order of
/// registration; disabled ones for disabled parameters. The tool tips say what each takes.
///
/// Changes of the user reach the algorithm through configure(), with the keys that the user changed and no others:
/// at once, or with "Apply" (setConfigureOnChanged). Each is a command on the undo stack of the window, where there is
/// one. Changes of the parameters made elsewhere, on any thread, show in the form soon after.
class DefaultAlgorithmController : public QWidget, public AlgorithmController, public Controller {
  Q_OBJECT

public:
  /// The algorithm must outlive the form. An empty title stands for the algorithm's display name. `closeWhenDone`: the
  /// window closes the form after a successful compute(). `computeAtOnce`: the window runs compute() as soon as it
  /// shows the form, without the user's asking. Throws std::invalid_argument for null, std::runtime_error without a
  /// QApplication.
  DefaultAlgorithmController(Algorithm* algorithm, std::string title, bool closeWhenDone, bool computeAtOnce);
  ~DefaultAlgorithmController() override;

  std::string title() const;
  bool closesWhenDone() const { return m_closeWhenDone; }
  bool computesAtOnce() const { return m_computeAtOnce; }

  /// With true, every change of the user reaches configure() of the algorithm at once. With false (the default) the
  /// form has the buttons "Apply" and "Reset", and "Compute" applies first.
  void setConfigureOnChanged(bool configureOnChanged);
  bool configureOnChanged() const { return m_configureOnChanged; }

  /// Hands what the user changed to configure() of the algorithm, also what is still being typed.
  void apply();
  /// Shows the algorithm's values, dropping changes that were not applied.
  void refresh();

  QWidget* widget() override { return this; }
  void init() override;

private:
  class Change;
  struct Row {
    const ParameterBase* parameter;
    ParameterEditor editor;
    std::string shown;
  };

  void addRows();
  void onEdited(const ParameterBase& parameter, const std::string& text);
  void applyEdits();
  void configureAlgorithm(const Properties& values);
  void showValue(Row& row);
  void follow();
  void updateButtons();

  std::string m_title;
  bool m_closeWhenDone;
  bool m_computeAtOnce;
  bool m_configureOnChanged = false;
  std::vector<Row> m_rows;
  Properties m_edits; ///< what the user changed and did not apply
  QWidget* m_buttons;
  QPushButton *m_applyButton, *m_resetButton;
  std::atomic<bool> m_followPosted = false;
  std::vector<BlockingConnection> m_connections; ///< last: they end first
};

} // namespace Kelvaris
