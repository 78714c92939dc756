#include "viewer/ViewerWindow.h"

#include "viewer/AlgorithmMenu.h"
#include "viewer/Appearance.h"
#include "viewer/BusyIndicator.h"
#include "viewer/DataListPanel.h"
#include "viewer/LiveDisplay.h"
#include "viewer/LogPanel.h"
#include "viewer/LongWorkDialog.h"
#include "viewer/MessageBar.h"
#include "viewer/RecentFiles.h"
#include "viewer/view/ImageView.h"

#include "Core/Log.h"
#include "Gui/QtHelpers.h"
#include "Lib/FactoryRegistry.h"

#include <QAbstractSpinBox>
#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDockWidget>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QScreen>
#include <QSettings>
#include <QStatusBar>
#include <QStyle>
#include <QVBoxLayout>

#include <algorithm>
#include <exception>
#include <fstream>
#include <utility>

namespace Kelvaris::Viewer {
namespace {

/// In a lower window the picture needs the room of the log; errors are told above it, too.
constexpr int kHeightWithLog = 560;

/// True for what begins as HDF5 files do; those hold images.
bool holdsImages(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string begin(8, '\0');
  stream.read(begin.data(), static_cast<std::streamsize>(begin.size()));
  return stream && begin == "\x89HDF\r\n\x1a\n";
}

/// What is typed into, of a spin box or a line; null for others.
QLineEdit* editOf(QObject& field) {
  const auto* const box = qobject_cast<QAbstractSpinBox*>(&field);
  return box ? box->findChild<QLineEdit*>() : qobject_cast<QLineEdit*>(&field);
}

} // namespace

ViewerWindow::ViewerWindow(QSettings* settings, LogModel& log)
    : m_settings(settings),
      m_controllers(*this, *this),
      m_view(&QtHelpers::make<ImageView>(this)),
      m_message(&QtHelpers::make<MessageBar>(this)),
      m_dataList(&QtHelpers::make<DataListPanel>(this, m_workspace)),
      m_busy(&QtHelpers::make<BusyIndicator>(this)),
      m_pointed(&QtHelpers::make<QLabel>(this)),
      m_liveStatus(&QtHelpers::make<QLabel>(this)),
      m_live(&QtHelpers::make<LiveDisplay>(this, *m_view)),
      m_algorithmMenu(&QtHelpers::make<AlgorithmMenu>(this, m_workspace.algorithms())),
      m_recentFiles(&QtHelpers::make<RecentFiles>(this, settings)) {
  setObjectName("viewerWindow");
  setAcceptDrops(true);
  setDockOptions(AnimatedDocks | AllowTabbedDocks | AllowNestedDocks);
  setTabPosition(Qt::RightDockWidgetArea, QTabWidget::North);
  resize(QSize(1400, 900).boundedTo(largestSize()));

  auto& center = QtHelpers::make<QWidget>(this);
  auto& layout = QtHelpers::make<QVBoxLayout>(&center);
  layout.setContentsMargins(0, 0, 0, 0);
  layout.addWidget(m_message);
  layout.addWidget(m_view, 1);
  setCentralWidget(&center);

  makeDocks(log);
  makeStatusBar();
  makeMenus();
  connectWorkspace();

  if (m_settings) {
    restoreGeometry(m_settings->value("geometry").toByteArray());
    restoreState(m_settings->value("docks").toByteArray());
    if (!isMaximized() && !isFullScreen()) { // with another scale, or on another screen
      resize(size().boundedTo(largestSize()));
      const QRect room(screen()->availableGeometry().topLeft(), largestSize());
      move(std::max(room.left(), std::min(x(), room.right() + 1 - width())),
           std::max(room.top(), std::min(y(), room.bottom() + 1 - height())));
      if (size() != m_settings->value("size").toSize()) sizeDocks();
    }
    setDark(m_settings->value("dark").toBool());
  }
  showSelection();
  m_dataList->setFocus();
  qApp->installEventFilter(this);
  QtHelpers::make<LongWorkDialog>(this);
}

ViewerWindow::~ViewerWindow() {
  // What listens to streams and what refers to algorithms goes before them.
  m_live->stop();
  m_undoStack.clear();
  m_workspace.clear();
}

QSize ViewerWindow::largestSize() const {
  return screen()->availableSize() - QSize(0, style()->pixelMetric(QStyle::PM_TitleBarHeight));
}

void ViewerWindow::makeDocks(LogModel& log) {
  const auto add = [this](const QString& name, const QString& title, QWidget* content, Qt::DockWidgetArea area) {
    auto* const dock = &QtHelpers::make<QDockWidget>(this, title);
    dock->setObjectName(name);
    dock->setWidget(content);
    addDockWidget(area, dock);
    return dock;
  };
  m_dataDock = add("dataDock", tr("Data"), m_dataList, Qt::LeftDockWidgetArea);
  m_logDock = add("logDock", tr("Log"), &QtHelpers::make<LogPanel>(this, log), Qt::BottomDockWidgetArea);
  sizeDocks();
  connect(&log, &LogModel::rowsInserted, this, [this, &log](const QModelIndex&, int first, int last) {
    if (m_logDock->isVisible()) return;
    for (int row = first; row <= last; ++row)
      if (log.index(row, 0).data(LogModel::kLevelRole).toInt() >= Log::Error)
        statusBar()->showMessage(
            tr("Error: %1 (View › Log has more)").arg(log.index(row, LogModel::Message).data().toString()), 10000);
  });
  connect(&m_controllers, &ControllerDocks::computeRequested, this, [this](Algorithm* algorithm) {
    if (Step* step = m_workspace.stepOf(*algorithm)) m_workspace.run(*step);
  });
  connect(&m_controllers, &ControllerDocks::cancelRequested, this, [this](Algorithm* algorithm) {
    if (Step* step = m_workspace.stepOf(*algorithm)) m_workspace.cancel(*step);
  });
  connect(m_dataList, &DataListPanel::selectionChanged, this, &ViewerWindow::showSelection);
  connect(m_dataList, &DataListPanel::kindsChanged, this, &ViewerWindow::updateActions);
  connect(m_dataList, &DataListPanel::activated, this, &ViewerWindow::showSettings);
  connect(m_algorithmMenu, &AlgorithmMenu::chosen, this, &ViewerWindow::applyAlgorithm);
  connect(m_recentFiles, &RecentFiles::chosen, this, [this](const QString& path) { open(path.toStdString()); });
}

void ViewerWindow::sizeDocks() {
  resizeDocks({m_dataDock}, {std::min(400, width() / 4)}, Qt::Horizontal);
  resizeDocks({m_logDock}, {std::min(150, height() / 6)}, Qt::Vertical);
  m_logDock->setVisible(height() >= kHeightWithLog);
}

void ViewerWindow::makeStatusBar() {
  statusBar()->addWidget(m_pointed);
  statusBar()->addPermanentWidget(m_busy);
  statusBar()->addPermanentWidget(m_liveStatus);
  m_liveStatus->setObjectName("liveStatus");
  m_liveStatus->setToolTip(tr("Emissions of the stream per second, and how many were not shown because a newer one "
                              "had come"));
  connect(m_view, &ImageView::pointed, m_pointed, &QLabel::setText);
  connect(m_live, &LiveDisplay::statusChanged, m_liveStatus, &QLabel::setText);
  connect(m_live, &LiveDisplay::started, this, [this] {
    restoreView();
    updateActions();
  });
  connect(m_busy, &BusyIndicator::cancelRequested, this, &ViewerWindow::cancelAll);
}

void ViewerWindow::connectWorkspace() {
  connect(&m_workspace, &Workspace::itemAdded, this, [this](DataItem* item) {
    if (m_pendingView)
      restoreView();
    else
      m_dataList->select(*item);
    if (!item->file().empty()) m_recentFiles->add(QString::fromStdString(item->file().string()));
    if (!m_pendingChain.empty() && !item->producer()) m_workspace.applyChain(std::exchange(m_pendingChain, {}), *item);
  });
  connect(&m_workspace, &Workspace::itemChanged, this, [this](DataItem* item) {
    if (item == m_shown && item->images()) m_view->updateImages(item->snapshot());
    updateActions();
  });
  connect(&m_workspace, &Workspace::itemAboutToBeRemoved, this, [this](DataItem* item) {
    m_pendingView.reset();
    m_seen.erase(item->id());
    if (item != m_shown) return;
    m_shown = nullptr;
    m_live->stop();
    m_view->clear();
    updateActions();
  });
  connect(&m_workspace, &Workspace::stepAdded, this, [this](Step* step) { addControllerOf(*step); });
  connect(&m_workspace, &Workspace::stepAboutToBeRemoved, this, [this](Step* step) {
    m_undoStack.clear(); // its commands may refer to the form
    if (step->id() == m_failedStep) hideFailure();
    m_controllers.removeOf(step->algorithm());
  });
  connect(&m_workspace, &Workspace::stepChanged, this, [this](Step* step) { showState(*step); });
  connect(&m_workspace, &Workspace::progress, this, &ViewerWindow::showProgress);
  connect(&m_workspace, &Workspace::busyChanged, m_busy, &BusyIndicator::setBusy);
  connect(&m_workspace, &Workspace::busyChanged, this, [this](bool busy) {
    m_busySince.start();
    if (!busy) endRestoring();
  });
  connect(&m_workspace, &Workspace::failed, this, [this](const QString& text) {
    m_onceSaved = nullptr;
    showError(text);
  });
  connect(&m_workspace, &Workspace::recordingChanged, this, [this](DataItem* stream, int emissions) {
    if (emissions > 0)
      statusBar()->showMessage(tr("Recording “%1”: %2 frames").arg(stream->name()).arg(emissions), 1500);
    updateActions();
  });
  connect(&m_workspace, &Workspace::saved, this, [this](const QString& path) {
    m_recentFiles->add(path);
    statusBar()->showMessage(tr("Wrote %1").arg(path), 5000);
  });
  connect(&m_workspace, &Workspace::sessionSaved, this, [this](const QString& path) {
    m_touched = false;
    m_recentFiles->add(path);
    statusBar()->showMessage(tr("Wrote the session %1").arg(path), 5000);
    updateTitle();
    if (const auto then = std::exchange(m_onceSaved, nullptr)) then();
  });
  connect(&m_workspace, &Workspace::sessionOpened, this, [this](const QString& path, const Properties& view) {
    m_touched = false;
    m_recentFiles->add(path);
    updateTitle();
    takeViewOfSession(view);
  });
  connect(&m_workspace, &Workspace::modifiedChanged, this, &ViewerWindow::updateTitle);
  connect(&m_undoStack, &QUndoStack::indexChanged, this, [this] { m_touched = true; });
  updateTitle();
}

void ViewerWindow::open(const std::filesystem::path& file) {
  const QFileInfo info(QString::fromStdString(file.string()));
  m_folder = info.absolutePath();
  if (holdsImages(file) || file.extension() == ".kvx" || !info.exists())
    m_workspace.open(file);
  else if (file.extension() == ".xml")
    showError(
        tr("%1 holds neither images nor a session; the steps of a chain are applied to data by File › Apply chain")
            .arg(info.filePath()));
  else if (mayLeave([this, file] { m_workspace.openSession(file); }))
    m_workspace.openSession(file);
}

void ViewerWindow::openAll(const std::vector<std::string>& files, const std::filesystem::path& chain) {
  m_pendingChain = chain;
  for (const std::string& file : files)
    open(file);
}

void ViewerWindow::setDark(bool dark) {
  m_dark->setChecked(dark);
}

AlgorithmController* ViewerWindow::addController(std::unique_ptr<AlgorithmController> controller) {
  return m_controllers.add(std::move(controller));
}

std::unique_ptr<AlgorithmController> ViewerWindow::removeController(AlgorithmController* controller) {
  return m_controllers.remove(controller);
}

void ViewerWindow::addData(OwningDataList list, Algorithm& producer) {
  while (std::unique_ptr<Data> one = list.extract<Data>())
    m_workspace.addData(std::move(one), m_workspace.stepOf(producer));
}

void ViewerWindow::addControllerOf(Step& step) {
  try {
    addController(FactoryRegistry::get().createAlgorithmController(&step.algorithm()));
  } catch (const std::exception& error) {
    showError(tr("The settings of %1 can't be shown: %2").arg(step.name(), QString::fromUtf8(error.what())));
  }
  updateActions();
}

void ViewerWindow::showSelection() {
  const std::vector<DataItem*> items = m_dataList->selectedItems();
  if (items.size() == 1) {
    if (m_pendingView && items.front()->id() != m_pendingView->item) m_pendingView.reset(); // the user goes elsewhere
    showItem(*items.front());
  }
  const Step* const step = items.size() == 1 ? items.front()->producer() : m_dataList->selectedStep();
  if (step) m_controllers.reveal(step->algorithm(), false);
  updateActions();
}

void ViewerWindow::showItem(DataItem& item) {
  if (&item == m_shown) return;
  if (m_shown && m_view->images())
    m_seen[m_shown->id()] = {m_view->state(), m_shown->stream() ? m_view->images() : nullptr};
  m_shown = &item;
  const auto seen = m_seen.find(item.id());
  if (ImageStream* stream = item.stream()) {
    m_live->show(*stream);
    if (seen != m_seen.end()) m_view->showImages(seen->second.last);
  } else {
    m_live->stop();
    m_view->showImages(item.snapshot());
  }
  if (seen != m_seen.end()) m_view->setState(seen->second.state);
}

Properties ViewerWindow::viewOfSession() const {
  Properties view;
  if (!m_shown) return view;
  view.setParam("selected", m_shown->id());
  view.setParam("paused", m_pause->isChecked());
  (m_pendingView && !m_pendingView->isShown ? m_pendingView->state : m_view->state()).writeTo(view);
  return view;
}

void ViewerWindow::takeViewOfSession(const Properties& view) {
  std::vector<std::string> problems;
  PendingView pending{0, ViewState::from(view, problems)};
  bool paused = false;
  for (const auto& [key, isRead] :
       {std::pair("selected", view.param("selected", pending.item)), std::pair("paused", view.param("paused", paused))})
    if (!isRead && view.hasParam(key)) problems.push_back(std::string("The session's view has a bad value for ") + key);
  m_pause->setChecked(paused);
  for (const std::string& problem : problems)
    showError(QString::fromStdString(problem));
  if (pending.item == 0) return;
  m_pendingView = pending;
  restoreView();
}

void ViewerWindow::restoreView() {
  DataItem* const item = m_pendingView && !m_pendingView->isShown ? m_workspace.item(m_pendingView->item) : nullptr;
  if (!item) return;
  if (item != m_shown) m_dataList->select(*item);
  if (item != m_shown || !m_view->images()) return; // a stream shows nothing before its first emission
  m_view->setState(m_pendingView->state);
  m_pendingView->isShown = true;
  if (!m_workspace.isBusy()) m_pendingView.reset();
}

void ViewerWindow::endRestoring() {
  if (!m_pendingView) return;
  const bool isMissing = !m_workspace.item(m_pendingView->item); // the step that makes it fails
  if (!isMissing && !m_pendingView->isShown) return;             // a stream that has emitted nothing yet
  m_pendingView.reset();
  if (isMissing && !m_workspace.items().empty()) m_dataList->select(*m_workspace.items().back());
}

void ViewerWindow::updateActions() {
  const std::vector<DataItem*> items = m_dataList->selectedItems();
  const DataItem* const item = items.size() == 1 ? items.front() : nullptr;
  m_algorithmMenu->setSelection(
      [&](const AlgorithmFactory::Descriptor& descriptor) { return m_workspace.isCompatible(descriptor, items); },
      item ? tr("“%1” (%2)").arg(item->name(), item->description()) : tr("what is selected"),
      static_cast<int>(items.size()));
  const bool hasStep = selectedStep() != nullptr;
  m_saveItem->setEnabled(item && item->images());
  for (QAction* action : {m_exportPicture, m_copyPicture})
    action->setEnabled(m_shown && m_view->images());
  m_applyChain->setEnabled(item);
  m_saveChain->setEnabled(item && hasStep);
  m_rename->setEnabled(item);
  m_remove->setEnabled(!items.empty() || hasStep);
  m_showSettings->setEnabled(hasStep);
  m_run->setEnabled(hasStep && !selectedStep()->isStream());
  const bool isLive = item && item->stream();
  m_pause->setEnabled(isLive);
  m_record->setEnabled(isLive);
  m_record->setText(isLive && m_workspace.isRecording(*item) ? tr("Stop &recording") : tr("&Record frames..."));
  m_startStop->setEnabled(isLive);
}

void ViewerWindow::showProgress(Step* step, const QString& text, int done, int steps) {
  if (!text.isEmpty()) m_busy->showProgress(text, done, steps);
  // The panel of a short run doesn't jump.
  if (step && m_busySince.isValid() && m_busySince.elapsed() > 300)
    m_controllers.showProgress(step->algorithm(), text, done, steps);
}

void ViewerWindow::showState(Step& step) {
  if (step.state() == Step::State::Idle || step.state() == Step::State::Failed)
    m_controllers.showEnd(step.algorithm(), step.error(), step.output() && !step.isOutdated());
  if (step.state() == Step::State::Failed) {
    m_message->showError(tr("%1 failed. %2").arg(step.name(), step.error()));
    m_failedStep = step.id();
  } else if (step.state() == Step::State::Idle && step.id() == m_failedStep) {
    hideFailure();
  }
  updateActions();
}

void ViewerWindow::hideFailure() {
  m_failedStep = 0;
  m_message->hide();
}

void ViewerWindow::showError(const QString& text) {
  Log::error("Viewer", "{}", text.toStdString());
  m_failedStep = 0;
  m_message->showError(text);
}

void ViewerWindow::cancelAll() {
  for (const auto& step : m_workspace.steps())
    if (step->state() == Step::State::Running || step->state() == Step::State::Waiting) m_workspace.cancel(*step);
  m_workspace.cancelFiles();
}

void ViewerWindow::updateTitle() {
  const auto& session = m_workspace.sessionFile();
  setWindowTitle(session.empty() ? QString() : QString::fromStdString(session.filename().string()) + "[*]");
  setWindowModified(!session.empty() && m_workspace.isModified());
}

bool ViewerWindow::mayLeave(const std::function<void()>& onceSaved) {
  noteStreamChanges();
  const bool isRecording = m_workspace.isRecording();
  if (!isRecording && (!m_touched || !m_workspace.isModified())) return true;
  const auto answer = QMessageBox::question(
      this, tr("Unsaved changes"),
      isRecording ? tr("A recording goes on. End it, and save what it has with steps and settings?")
                  : tr("Steps and settings have changed since the last session was saved. Save them?"),
      QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, QMessageBox::Save);
  if (answer == QMessageBox::Save) {
    m_workspace.stopRecordings();
    if (saveSession()) m_onceSaved = onceSaved;
  }
  return answer == QMessageBox::Discard;
}

void ViewerWindow::noteStreamChanges() {
  if (m_workspace.findStreamChanges()) m_touched = true;
}

bool ViewerWindow::eventFilter(QObject* object, QEvent* event) {
  const auto isEnter = [&] {
    const int key = static_cast<QKeyEvent*>(event)->key();
    return key == Qt::Key_Return || key == Qt::Key_Enter;
  };
  if (event->type() == QEvent::FocusOut || (event->type() == QEvent::KeyPress && isEnter()))
    if (QLineEdit* const edit = editOf(*object)) edit->setModified(false); // what was typed has become a value
  if (event->type() == QEvent::ShortcutOverride && isForMenus(*object, *static_cast<QKeyEvent*>(event))) {
    event->ignore();
    return true;
  }
  return QMainWindow::eventFilter(object, event);
}

bool ViewerWindow::isForMenus(QObject& field, const QKeyEvent& key) const {
  const auto* const edit = editOf(field);
  if (!edit || edit->window() != this || !(key.modifiers() & Qt::ControlModifier)) return false;
  if ((key.matches(QKeySequence::Undo) && edit->isModified() && edit->isUndoAvailable()) ||
      (key.matches(QKeySequence::Redo) && edit->isRedoAvailable()))
    return false; // the text that is being typed
  const QKeySequence keys(key.key() | static_cast<int>(key.modifiers() & ~Qt::KeypadModifier));
  const auto actions = findChildren<QAction*>();
  return std::any_of(actions.begin(), actions.end(),
                     [&](const QAction* action) { return action->isEnabled() && action->shortcuts().contains(keys); });
}

void ViewerWindow::closeEvent(QCloseEvent* event) {
  if (!mayLeave([this] { close(); })) return event->ignore();
  if (m_settings) {
    m_settings->setValue("geometry", saveGeometry());
    m_settings->setValue("size", size());
    m_settings->setValue("docks", saveState());
    m_settings->setValue("dark", m_dark->isChecked());
  }
  event->accept();
}

void ViewerWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void ViewerWindow::dropEvent(QDropEvent* event) {
  for (const QUrl& url : event->mimeData()->urls())
    if (url.isLocalFile()) open(url.toLocalFile().toStdString());
  event->acceptProposedAction();
}

} // namespace Kelvaris::Viewer
