#pragma once

#include "viewer/ControllerDocks.h"
#include "viewer/LogModel.h"
#include "viewer/Workspace.h"
#include "viewer/view/ViewState.h"

#include "Gui/MainWindow.h"

#include <QElapsedTimer>
#include <QMainWindow>
#include <QUndoStack>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QAction;
class QDockWidget;
class QLabel;
class QMenu;
class QSettings;

namespace Kelvaris::Viewer {

class AlgorithmMenu;
class BusyIndicator;
class DataListPanel;
class ImageView;
class LiveDisplay;
class MessageBar;
class RecentFiles;

/// The window of the viewer: data list at the left, the picture in the middle, controllers at the right, the log below.
class ViewerWindow : public QMainWindow, public Kelvaris::MainWindow {
  Q_OBJECT

public:
  /// `settings`: where the window's place, its docks and recent files are kept; it must outlive the window; null: they
  /// are not kept. The plugins' algorithms make the menu, so the plugins are loaded before.
  ViewerWindow(QSettings* settings, LogModel& log);
  ~ViewerWindow() override;

  Workspace& workspace() { return m_workspace; }
  ImageView& view() { return *m_view; }
  const LiveDisplay& live() const { return *m_live; }

  /// Images or a session, whichever the file holds.
  void open(const std::filesystem::path& file);
  /// All of them; the steps of `chain`, unless that is empty, are applied to the first that is read.
  void openAll(const std::vector<std::string>& files, const std::filesystem::path& chain);
  void setDark(bool dark);

  AlgorithmController* addController(std::unique_ptr<AlgorithmController> controller) override;
  std::unique_ptr<AlgorithmController> removeController(AlgorithmController* controller) override;
  void addData(OwningDataList list, Algorithm& producer) override;
  QUndoStack* undoStack() override { return &m_undoStack; }

protected:
  bool eventFilter(QObject* object, QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

private:
  /// That the screen has room for, below a title bar.
  QSize largestSize() const;
  void makeDocks(LogModel& log);
  /// As the window's size suggests.
  void sizeDocks();
  void makeStatusBar();
  void connectWorkspace();
  void addControllerOf(Step& step);

  // What the window shows
  void showSelection();
  void showItem(DataItem& item);
  /// What a session keeps of the window, and how it comes back: as soon as what was shown is there again.
  Properties viewOfSession() const;
  void takeViewOfSession(const Properties& view);
  void restoreView();
  void endRestoring();
  void showProgress(Step* step, const QString& text, int done, int steps);
  void showState(Step& step);
  void hideFailure();
  void showError(const QString& text);
  void updateActions();
  void updateTitle();

  // Menus, and what they offer
  void makeMenus();
  void makeFileMenu();
  void makeEditMenu();
  void makeViewMenu();
  void makeLiveMenu();
  QAction* addAction(QMenu& menu, const QString& text, const QString& tip, const QKeySequence& keys,
                     const std::function<void()>& action);
  /// Null unless one is selected, or a step that has none yet.
  DataItem* selectedItem() const;
  Step* selectedStep() const;
  void applyAlgorithm(const QString& id);
  void cancelAll();
  void saveItem();
  void exportPicture();
  void applyChain();
  void saveChain();
  bool saveSession();
  /// What the user has changed in the panels of streams.
  void noteStreamChanges();
  /// True for keys of a menu's entry that the field would keep for itself, as line editors do with Ctrl+Z, Ctrl+E and
  /// Ctrl+K.
  bool isForMenus(QObject& field, const QKeyEvent& key) const;
  void removeSelected();
  void record();
  void showSettings();
  void focusNextPart();
  /// Empty if the user cancels.
  QString askWhereTo(const QString& title, const QString& name, const QString& filter, const QString& suffix);
  /// Asks whether unsaved work of the user's is to be saved, where there is some. If it is, the answer is false, and
  /// `onceSaved` is called when it has been.
  bool mayLeave(const std::function<void()>& onceSaved);

  QSettings* m_settings;
  Workspace m_workspace;
  QUndoStack m_undoStack;
  ControllerDocks m_controllers;
  ImageView* m_view;
  MessageBar* m_message;
  DataListPanel* m_dataList;
  BusyIndicator* m_busy;
  QLabel *m_pointed, *m_liveStatus;
  LiveDisplay* m_live;
  AlgorithmMenu* m_algorithmMenu;
  RecentFiles* m_recentFiles;
  QDockWidget *m_dataDock = nullptr, *m_logDock = nullptr;
  QAction *m_saveItem = nullptr, *m_exportPicture = nullptr, *m_copyPicture = nullptr, *m_applyChain = nullptr,
          *m_saveChain = nullptr, *m_rename = nullptr, *m_remove = nullptr, *m_showSettings = nullptr, *m_run = nullptr,
          *m_startStop = nullptr, *m_pause = nullptr, *m_record = nullptr, *m_dark = nullptr;

  /// Of a session that is being restored; what its steps make doesn't take the selection.
  struct PendingView {
    int item;
    ViewState state;
    bool isShown = false;
  };
  DataItem* m_shown = nullptr; ///< in the view
  struct Seen {
    ViewState state;
    std::shared_ptr<const SharedImageSet> last; ///< of a stream, which may emit nothing more
  };
  std::map<int, Seen> m_seen; ///< how the items that aren't shown were looked at, by id
  std::optional<PendingView> m_pendingView;
  int m_failedStep = 0;                 ///< of which the message speaks
  std::filesystem::path m_pendingChain; ///< for the next item that is read
  bool m_touched = false;               ///< the user has made something since the last session
  std::function<void()> m_onceSaved;
  QElapsedTimer m_busySince;
  QString m_folder; ///< of the file that was chosen last
  int m_framesToRecord = 100;
};

} // namespace Kelvaris::Viewer
