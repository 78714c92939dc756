#include "viewer/ControllerDocks.h"

#include "viewer/Focus.h"

#include "Core/Log.h"
#include "Gui/Controller.h"
#include "Gui/DefaultAlgorithmController.h"
#include "Gui/DefaultControllerDecorator.h"
#include "Gui/QtHelpers.h"
#include "Gui/StreamControllerBase.h"
#include "Lib/Algorithm.h"

#include <QDockWidget>
#include <QMainWindow>
#include <QMenu>
#include <QScrollArea>
#include <QScrollBar>
#include <QTabBar>

#include <algorithm>

namespace Kelvaris::Viewer {
namespace {

/// Scrolls a panel that has no room; asks for the room that it would like.
class PanelArea : public QScrollArea {
public:
  explicit PanelArea(QWidget* panel) {
    setFrameShape(NoFrame);
    setWidgetResizable(true);
    setWidget(panel);
  }

  QSize minimumSizeHint() const override { return {fontMetrics().averageCharWidth() * 30, 80}; }
  QSize sizeHint() const override { return widget()->sizeHint() + QSize(verticalScrollBar()->sizeHint().width(), 0); }
};

/// Width for panels that leaves room for the data list, a quarter, and for the picture's controls.
int roomFor(const QMainWindow& window) {
  return std::max(window.width() * 3 / 10, window.width() * 3 / 4 - window.fontMetrics().averageCharWidth() * 55);
}

} // namespace

ControllerDocks::ControllerDocks(QMainWindow& window, MainWindow& host) : m_window(window), m_host(host) {}

ControllerDocks::~ControllerDocks() {
  while (!m_entries.empty())
    undock(m_entries.back().controller.get()).reset();
}

AlgorithmController* ControllerDocks::add(std::unique_ptr<AlgorithmController> controller) {
  auto* const shown = dynamic_cast<Controller*>(controller.get());
  if (!shown || !shown->widget()) {
    Log::error("MainWindow", "The controller of {} has no panel to show",
               controller ? controller->algorithm().factoryInfo().displayName : "nothing");
    return nullptr;
  }
  AlgorithmController* const added = controller.get();
  const QString title = shown->widget()->windowTitle();
  const QString name = QString::fromStdString(added->algorithm().factoryInfo().displayName);
  auto panel = std::make_unique<DefaultControllerDecorator>(shown->widget(), name.isEmpty() ? title : name);
  auto* const decorator = panel.get();
  if (dynamic_cast<StreamControllerBase*>(added)) decorator->hideAlgorithmButtons();

  auto* const dock = &QtHelpers::make<QDockWidget>(&m_window, decorator->title());
  dock->setObjectName(QStringLiteral("controller%1").arg(m_count++));
  dock->setWidget(std::make_unique<PanelArea>(panel.release()).release());
  connect(decorator, &DefaultControllerDecorator::titleChanged, dock, &QDockWidget::setWindowTitle);
  connect(decorator, &DefaultControllerDecorator::computeRequested, this,
          [this, added] { Q_EMIT computeRequested(&added->algorithm()); });
  connect(decorator, &DefaultControllerDecorator::cancelRequested, this,
          [this, added] { Q_EMIT cancelRequested(&added->algorithm()); });

  const auto docked = std::find_if(m_entries.rbegin(), m_entries.rend(), [&](const Entry& entry) {
    return !entry.dock->isFloating() && m_window.dockWidgetArea(entry.dock) == Qt::RightDockWidgetArea;
  });
  m_window.addDockWidget(Qt::RightDockWidgetArea, dock);
  const int width = std::min(dock->widget()->sizeHint().width(), roomFor(m_window));
  if (docked != m_entries.rend()) {
    const int present = docked->dock->width();
    m_window.tabifyDockWidget(docked->dock, dock);
    if (present < width) m_window.resizeDocks({dock}, {width}, Qt::Horizontal);
  } else {
    m_window.resizeDocks({dock}, {width}, Qt::Horizontal);
  }
  m_entries.push_back({std::move(controller), decorator, dock});
  // Many tabs scroll instead of losing their names.
  for (QTabBar* tabs : m_window.findChildren<QTabBar*>(QString(), Qt::FindDirectChildrenOnly)) {
    tabs->setElideMode(Qt::ElideNone);
    tabs->setUsesScrollButtons(true);
  }
  dock->show();
  dock->raise();

  shown->setMainWindow(&m_host);
  shown->setDefaultDecorator(decorator);
  try {
    shown->init();
  } catch (...) {
    remove(added);
    throw;
  }
  return added;
}

std::unique_ptr<AlgorithmController> ControllerDocks::remove(AlgorithmController* controller) {
  std::unique_ptr<AlgorithmController> removed = undock(controller);
  if (auto* const shown = dynamic_cast<Controller*>(removed.get())) {
    shown->setMainWindow(nullptr);
    shown->setDefaultDecorator(nullptr);
  }
  return removed;
}

void ControllerDocks::removeOf(const Algorithm& algorithm) {
  // A controller's end may take out panels that it has brought, so it still knows the window.
  while (const Entry* entry = find(algorithm))
    undock(entry->controller.get()).reset();
}

std::unique_ptr<AlgorithmController> ControllerDocks::undock(AlgorithmController* controller) {
  const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                  [&](const Entry& entry) { return entry.controller.get() == controller; });
  if (found == m_entries.end()) return nullptr;
  Entry entry = std::move(*found);
  m_entries.erase(found);
  m_window.removeDockWidget(entry.dock);
  delete entry.dock; // gives the panel back
  return std::move(entry.controller);
}

bool ControllerDocks::reveal(const Algorithm& algorithm, bool focus) {
  const Entry* entry = find(algorithm);
  if (!entry) return false;
  entry->dock->show();
  const auto* const controller = dynamic_cast<Controller*>(entry->controller.get());
  for (const Entry& other : m_entries)
    if (controller && other.controller.get() == controller->dependentController()) entry = &other;
  entry->dock->show();
  entry->dock->raise();
  if (focus) focusFirst(*entry->decorator);
  return true;
}

void ControllerDocks::showEnd(const Algorithm& algorithm, const QString& error, bool done) {
  const Entry* const entry = find(algorithm);
  if (!entry) return;
  entry->decorator->hideProgress();
  entry->decorator->showMessage(error);
  const auto* const form = dynamic_cast<DefaultAlgorithmController*>(entry->controller.get());
  if (form && form->closesWhenDone() && done) entry->dock->hide();
}

void ControllerDocks::showProgress(const Algorithm& algorithm, const QString& text, int step, int steps) {
  if (const Entry* entry = find(algorithm)) entry->decorator->showProgress(text, step, steps);
}

QWidget* ControllerDocks::front() const {
  // Docks behind other tabs are not visible, but not hidden either: what is in them shows nothing.
  for (const Entry& entry : m_entries)
    if (!entry.decorator->visibleRegion().isEmpty()) return entry.decorator;
  return nullptr;
}

void ControllerDocks::addActions(QMenu& menu) const {
  for (const Entry& entry : m_entries)
    menu.addAction(entry.dock->toggleViewAction());
}

const ControllerDocks::Entry* ControllerDocks::find(const Algorithm& algorithm) const {
  const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                  [&](const Entry& entry) { return &entry.controller->algorithm() == &algorithm; });
  return found == m_entries.end() ? nullptr : &*found;
}

} // namespace Kelvaris::Viewer
