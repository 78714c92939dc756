// What the menus of the window offer.
#include "viewer/AlgorithmMenu.h"
#include "viewer/Appearance.h"
#include "viewer/ChainOf.h"
#include "viewer/DataListPanel.h"
#include "viewer/Focus.h"
#include "viewer/HelpDialogs.h"
#include "viewer/LiveDisplay.h"
#include "viewer/RecentFiles.h"
#include "viewer/ViewerWindow.h"
#include "viewer/view/ColorMap.h"
#include "viewer/view/ImageCanvas.h"
#include "viewer/view/ImageView.h"

#include "Gui/QtHelpers.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/PendingFile.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>

#include <exception>
#include <fstream>
#include <stdexcept>

namespace Kelvaris::Viewer {
namespace {

const char* const kDataFilter = QT_TRANSLATE_NOOP("ViewerWindow", "Images (*.kvx)");
const char* const kSessionFilter = QT_TRANSLATE_NOOP("ViewerWindow", "Sessions (*.kvs)");
const char* const kChainFilter = QT_TRANSLATE_NOOP("ViewerWindow", "Chains (*.xml)");
const char* const kPictureFilter = QT_TRANSLATE_NOOP("ViewerWindow", "Pictures (*.png)");

/// What a file name may hold everywhere.
QString asFileName(QString name) {
  for (QChar& c : name)
    if (QStringLiteral("/\\:*?\"<>|").contains(c)) c = '-';
  return name;
}

/// The stream that the item's emissions are made of in the end: those of steps work as it does.
Stream& sourceOf(const DataItem& item) {
  const DataItem* source = &item;
  while (source->producer() && !source->producer()->inputs().empty() && source->producer()->inputs().front()->stream())
    source = source->producer()->inputs().front();
  return *source->stream();
}

} // namespace

QAction* ViewerWindow::addAction(QMenu& menu, const QString& text, const QString& tip, const QKeySequence& keys,
                                 const std::function<void()>& action) {
  QAction* const added = menu.addAction(text);
  added->setStatusTip(tip);
  added->setShortcut(keys);
  if (action) connect(added, &QAction::triggered, this, action);
  return added;
}

void ViewerWindow::makeMenus() {
  makeFileMenu();
  makeEditMenu();
  makeViewMenu();
  m_algorithmMenu->setTitle(tr("&Algorithms"));
  menuBar()->addMenu(m_algorithmMenu);
  makeLiveMenu();
  QMenu& help = *menuBar()->addMenu(tr("&Help"));
  addAction(help, tr("&Keyboard shortcuts"), tr("List all shortcuts"), QKeySequence::HelpContents,
            [this] { showShortcuts(*this); });
  addAction(help, tr("&About"), tr("Version, and what algorithms compute on"), {}, [this] { showAbout(*this); });
  m_dataList->setActions({m_showSettings, m_run, m_rename, m_remove, m_saveItem, m_applyChain, m_saveChain});
}

void ViewerWindow::makeFileMenu() {
  QMenu& menu = *menuBar()->addMenu(tr("&File"));
  addAction(menu, tr("&Open..."), tr("Open images (.kvx) or a session (.kvs)"), QKeySequence::Open, [this] {
    const QStringList files =
        QFileDialog::getOpenFileNames(this, tr("Open"), m_folder,
                                      tr("Images and sessions (*.kvx *.kvs)") + ";;" + tr(kDataFilter) + ";;" +
                                          tr(kSessionFilter) + ";;" + tr("All files (*)"));
    for (const QString& file : files)
      open(file.toStdString());
  });
  m_recentFiles->setTitle(tr("Open &recent"));
  menu.addMenu(m_recentFiles);
  QMenu& sources = *menu.addMenu(tr("New &stream"));
  m_algorithmMenu->addSources(sources);
  sources.setEnabled(!sources.isEmpty());
  menu.addSeparator();
  m_saveItem = addAction(menu, tr("Save &data..."), tr("Save the selected data as .kvx"), QKeySequence::Save,
                         [this] { saveItem(); });
  m_exportPicture = addAction(menu, tr("&Export picture..."), tr("Save the picture that is shown as PNG"),
                              QKeySequence("Ctrl+E"), [this] { exportPicture(); });
  menu.addSeparator();
  m_applyChain =
      addAction(menu, tr("Apply &chain..."), tr("Apply the steps of a chain file (.xml) to the selected data"),
                QKeySequence("Ctrl+K"), [this] { applyChain(); });
  m_saveChain = addAction(menu, tr("Save c&hain..."),
                          tr("Save the steps that made the selected data, for other data and for the command line"),
                          QKeySequence("Ctrl+Shift+K"), [this] { saveChain(); });
  menu.addSeparator();
  addAction(menu, tr("Save sess&ion..."), tr("Save data, steps and settings, to go on later"),
            QKeySequence("Ctrl+Shift+S"), [this] { saveSession(); });
  menu.addSeparator();
  addAction(menu, tr("&Quit"), tr("Close the viewer"), QKeySequence("Ctrl+Q"), [this] { close(); });
}

void ViewerWindow::makeEditMenu() {
  QMenu& menu = *menuBar()->addMenu(tr("&Edit"));
  QAction* const undo = m_undoStack.createUndoAction(this, tr("&Undo"));
  undo->setShortcut(QKeySequence::Undo);
  undo->setStatusTip(tr("Take back the last change of a parameter"));
  QAction* const redo = m_undoStack.createRedoAction(this, tr("&Redo"));
  redo->setShortcuts({QKeySequence("Ctrl+Shift+Z"), QKeySequence("Ctrl+Y")});
  redo->setStatusTip(tr("Make the change again"));
  menu.addActions({undo, redo});
  menu.addSeparator();
  m_copyPicture =
      addAction(menu, tr("&Copy picture"), tr("Copy the picture that is shown to the clipboard"),
                QKeySequence("Ctrl+Shift+C"), [this] { QApplication::clipboard()->setImage(m_view->picture()); });
  menu.addSeparator();
  m_showSettings = addAction(menu, tr("&Settings"), tr("Go to the settings of the step that made the selected data"),
                             Qt::Key_F4, [this] { showSettings(); });
  m_run = addAction(menu, tr("Compute &again"), tr("Run the step that made the selected data once more"), Qt::Key_F5,
                    [this] { m_workspace.run(*selectedStep()); });
  m_rename = addAction(menu, tr("Re&name"), tr("Give the selected data another name"), Qt::Key_F2,
                       [this] { m_dataList->editName(); });
  m_remove =
      addAction(menu, tr("Re&move"),
                tr("Remove the selected data from the list, the step that made them, and all that was made from them"),
                QKeySequence::Delete, [this] { removeSelected(); });
  // Fields use these keys, too.
  for (QAction* action : {m_rename, m_remove})
    action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
}

void ViewerWindow::makeViewMenu() {
  QMenu& menu = *menuBar()->addMenu(tr("&View"));
  addAction(menu, tr("Zoom &in"), tr("Enlarge the picture"), QKeySequence("Ctrl++"),
            [this] { m_view->canvas().zoom(1.25); });
  addAction(menu, tr("Zoom &out"), tr("Make the picture smaller"), QKeySequence("Ctrl+-"),
            [this] { m_view->canvas().zoom(0.8); });
  addAction(menu, tr("&Fit"), tr("Show the whole picture"), QKeySequence("Ctrl+0"), [this] { m_view->canvas().fit(); });
  addAction(menu, tr("O&ne to one"), tr("One pixel of the picture is one pixel of the screen"), QKeySequence("Ctrl+1"),
            [this] { m_view->canvas().oneToOne(); });
  QMenu& colors = *menu.addMenu(tr("&Colour map"));
  QString taken;
  for (std::size_t i = 0; i < colorMaps().size(); ++i) {
    addAction(colors, QtHelpers::withMnemonic(colorMaps()[i].name, taken), colorMaps()[i].description, {},
              [this, i] { m_view->setColorMap(static_cast<int>(i)); });
  }
  menu.addSeparator();
  QAction* const list = m_dataDock->toggleViewAction();
  list->setText(tr("&Data"));
  list->setStatusTip(tr("Show or hide the list of data"));
  QAction* const log = m_logDock->toggleViewAction();
  log->setText(tr("&Log"));
  log->setStatusTip(tr("Show or hide what the program has logged"));
  menu.addActions({list, log});
  QMenu* const panels = menu.addMenu(tr("&Settings of"));
  connect(panels, &QMenu::aboutToShow, this, [this, panels] {
    panels->clear();
    m_controllers.addActions(*panels);
    if (panels->isEmpty()) panels->addAction(tr("(no step yet)"))->setEnabled(false);
  });
  addAction(menu, tr("Ne&xt part of the window"), tr("Move the keyboard's focus: data, picture, settings, log"),
            Qt::Key_F6, [this] { focusNextPart(); });
  menu.addSeparator();
  m_dark = addAction(menu, tr("Dar&k colours"), tr("Dark colours for dim rooms"), {}, {});
  m_dark->setCheckable(true);
  connect(m_dark, &QAction::toggled, this,
          [](bool dark) { Viewer::setDark(*static_cast<QApplication*>(QApplication::instance()), dark); });
}

void ViewerWindow::makeLiveMenu() {
  QMenu& menu = *menuBar()->addMenu(tr("&Live"));
  m_startStop = addAction(menu, tr("&Start or stop"), tr("Start the selected stream, or stop it"),
                          QKeySequence("Ctrl+T"), [this] {
                            Stream& source = sourceOf(*selectedItem());
                            source.state() == Stream::State::Running ? source.stopAsync() : source.startAsync();
                          });
  m_pause =
      addAction(menu, tr("&Pause the display"), tr("Hold the picture; the stream goes on"), QKeySequence("Ctrl+P"), {});
  m_pause->setCheckable(true);
  connect(m_pause, &QAction::toggled, m_live, &LiveDisplay::setPaused);
  m_record = addAction(menu, tr("&Record frames..."), tr("Keep the next frames of the selected stream as data"),
                       QKeySequence("Ctrl+R"), [this] { record(); });
}

DataItem* ViewerWindow::selectedItem() const {
  const std::vector<DataItem*> items = m_dataList->selectedItems();
  return items.size() == 1 ? items.front() : nullptr;
}

Step* ViewerWindow::selectedStep() const {
  const DataItem* const item = selectedItem();
  return item ? item->producer() : m_dataList->selectedStep();
}

void ViewerWindow::applyAlgorithm(const QString& id) {
  std::vector<DataItem*> inputs = m_dataList->selectedItems();
  const auto descriptor = FactoryRegistry::get().algorithmDescriptor(id.toStdString(), false);
  if (descriptor && m_workspace.isCompatible(*descriptor, {})) inputs.clear();
  m_touched = true;
  if (Step* step = m_workspace.addStep(id.toStdString(), inputs); step && !step->isStream()) m_workspace.run(*step);
}

QString ViewerWindow::askWhereTo(const QString& title, const QString& name, const QString& filter,
                                 const QString& suffix) {
  QFileDialog dialog(this, title, m_folder, filter);
  dialog.setAcceptMode(QFileDialog::AcceptSave);
  dialog.setDefaultSuffix(suffix);
  dialog.selectFile(asFileName(name) + '.' + suffix);
  if (dialog.exec() != QDialog::Accepted) return {};
  const QString path = dialog.selectedFiles().value(0);
  m_folder = QFileInfo(path).absolutePath();
  return path;
}

void ViewerWindow::saveItem() {
  DataItem& item = *selectedItem();
  const QString path = askWhereTo(tr("Save data"), item.name(), tr(kDataFilter), "kvx");
  if (!path.isEmpty()) m_workspace.save(item, path.toStdString());
}

void ViewerWindow::exportPicture() {
  const QImage picture = m_view->picture();
  const QString path = askWhereTo(tr("Export picture"), m_shown->name(), tr(kPictureFilter), "png");
  if (path.isEmpty()) return;
  try {
    PendingFile file(path.toStdString());
    if (!picture.save(QString::fromStdString(file.path().string()), "PNG"))
      throw std::runtime_error("Can't write " + path.toStdString());
    file.commit();
    statusBar()->showMessage(tr("Wrote %1").arg(path), 5000);
  } catch (const std::exception& error) {
    showError(QString::fromUtf8(error.what()));
  }
}

void ViewerWindow::applyChain() {
  DataItem& item = *selectedItem();
  const QString path = QFileDialog::getOpenFileName(this, tr("Apply chain"), m_folder, tr(kChainFilter));
  if (path.isEmpty()) return;
  m_folder = QFileInfo(path).absolutePath();
  m_touched = true;
  m_workspace.applyChain(path.toStdString(), item);
}

void ViewerWindow::saveChain() {
  const auto steps = chainOf(*selectedItem());
  const QString path = askWhereTo(tr("Save chain"), tr("chain"), tr(kChainFilter), "xml");
  if (path.isEmpty()) return;
  try {
    PendingFile file(path.toStdString());
    std::ofstream stream(file.path(), std::ios::binary);
    stream << CommandLine::chainToXml(steps);
    stream.close();
    if (!stream) throw std::runtime_error("Can't write " + path.toStdString());
    file.commit();
    statusBar()->showMessage(tr("Wrote %1").arg(path), 5000);
  } catch (const std::exception& error) {
    showError(QString::fromUtf8(error.what()));
  }
}

bool ViewerWindow::saveSession() {
  noteStreamChanges();
  const auto& present = m_workspace.sessionFile();
  const QString name = present.empty() ? tr("session") : QString::fromStdString(present.stem().string());
  const QString path = askWhereTo(tr("Save session"), name, tr(kSessionFilter), "kvs");
  if (!path.isEmpty()) m_workspace.saveSession(path.toStdString(), viewOfSession());
  return !path.isEmpty();
}

void ViewerWindow::removeSelected() {
  QStringList unsaved;
  for (const DataItem* item : m_dataList->selectedItems())
    if (item->images() && !item->producer() && item->file().empty()) unsaved.append(item->name());
  if (!unsaved.isEmpty() &&
      QMessageBox::question(this, tr("Remove"),
                            tr("%1: nothing has saved this. Remove it for good?").arg(unsaved.join(", "))) !=
          QMessageBox::Yes)
    return;
  m_touched = true;
  // To go on with: what the step worked on, unless the list finds a neighbour.
  const Step* const removed = selectedStep();
  const int inputId = removed && !removed->inputs().empty() ? removed->inputs().front()->id() : 0;
  // Removing one may remove others.
  std::vector<int> ids;
  for (const DataItem* item : m_dataList->selectedItems())
    ids.push_back(item->id());
  if (ids.empty()) {
    if (Step* step = selectedStep()) m_workspace.remove(*step);
  }
  for (const int id : ids)
    if (DataItem* item = m_workspace.item(id)) {
      if (Step* step = item->producer())
        m_workspace.remove(*step);
      else
        m_workspace.remove(*item);
    }
  m_dataList->selectCurrent();
  DataItem* const input = m_workspace.item(inputId);
  if (input && m_dataList->selectedItems().empty() && !m_dataList->selectedStep()) m_dataList->select(*input);
}

void ViewerWindow::record() {
  DataItem& item = *selectedItem();
  if (m_workspace.isRecording(item)) return m_workspace.stopRecording(item);
  bool ok = false;
  const int frames = QInputDialog::getInt(this, tr("Record frames"), tr("Number of emissions to keep:"),
                                          m_framesToRecord, 1, 1000000, 10, &ok);
  if (!ok) return;
  m_framesToRecord = frames;
  m_touched = true;
  m_workspace.startRecording(item, frames);
}

void ViewerWindow::showSettings() {
  if (Step* step = selectedStep()) m_controllers.reveal(step->algorithm(), true);
}

void ViewerWindow::focusNextPart() {
  std::vector<QWidget*> parts;
  for (QWidget* part : {static_cast<QWidget*>(m_dataDock), static_cast<QWidget*>(m_view), m_controllers.front(),
                        static_cast<QWidget*>(m_logDock)})
    if (part && part->isVisible()) parts.push_back(part);
  const QWidget* const focus = focusWidget();
  std::size_t present = 0;
  while (present < parts.size() && focus != parts[present] && !parts[present]->isAncestorOf(focus))
    ++present;
  for (std::size_t i = 1; i <= parts.size(); ++i)
    if (focusFirst(*parts[(present + i) % parts.size()])) return;
}

} // namespace Kelvaris::Viewer
