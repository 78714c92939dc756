#pragma once

#include "viewer/BackgroundThread.h"
#include "viewer/CoalescedCall.h"
#include "viewer/DataItem.h"
#include "viewer/FileJobs.h"
#include "viewer/Session.h"
#include "viewer/SessionFile.h"
#include "viewer/Step.h"
#include "viewer/StreamRecordings.h"

#include "Core/Properties.h"
#include "Lib/AlgorithmFactory.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Kelvaris::Viewer {

struct Run;

/// What the viewer works on: a list of data, and steps that make data from data. It needs no window.
///
/// All functions are for the main thread, all signals come on it, and nothing blocks it: algorithms compute on a thread
/// of the workspace, one after the other, and files are read and written on another. What goes wrong is told by
/// failed(), in words for the user; nothing is thrown.
///
/// Steps that have been run once follow their parameters and their inputs: a change of a parameter (on any thread)
/// makes the step run again a moment later, cancelling a run of it that is still going on then, and what depends on its
/// output runs after it. A step whose run fails or is cancelled keeps the output that it has; why it failed is told by
/// the step itself.
///
/// Steps of streams aren't run. Whoever shows their controllers has init() hand over the stream by addData() while
/// stepAdded() is emitted; where nobody has done so, the workspace does it itself. Streams are made, configured and
/// destroyed on the main thread, those who listen before those whom they listen to. Whoever listens to a stream of the
/// list stops at itemAboutToBeRemoved(), where the stream is still there.
class Workspace : public QObject {
  Q_OBJECT

public:
  explicit Workspace(QObject* parent = nullptr);
  /// Cancels all work, waits for what is in progress, and emits nothing.
  ~Workspace() override;

  /// In the order of their ids, which is that in which they came into being.
  const std::vector<std::unique_ptr<DataItem>>& items() const { return m_items; }
  /// Likewise: each comes behind those whose outputs it takes.
  const std::vector<std::unique_ptr<Step>>& steps() const { return m_steps; }
  /// Null if there is none of that id.
  DataItem* item(int id) const;
  Step* step(int id) const;
  /// The step that owns the algorithm; null if there is none.
  Step* stepOf(const Algorithm& algorithm) const;

  // Files. Progress comes with a null step.

  /// Reads a .kvx file: itemAdded(), or failed().
  void open(const std::filesystem::path& path);
  /// Writes the images as they are now to a .kvx file: saved(), or failed(). Nothing is left of what fails.
  void save(DataItem& item, const std::filesystem::path& path);
  /// Gives up all reading and writing of files (and sessions) that is going on or waits.
  void cancelFiles();
  bool isFileWorkGoingOn() const;

  // Data and steps

  /// An empty name: that of the producer, or of the data. Throws std::invalid_argument for null data.
  DataItem& addData(std::unique_ptr<Data> data, Step* producer = nullptr, const QString& name = {});
  void rename(DataItem& item, const QString& name);
  /// All that need it go first, in reverse order of dependence, with their outputs. The step that made it stays, and
  /// waits to be run; but a stream's, which can't make another one, goes along.
  void remove(DataItem& item);
  /// The step, its outputs, and all that need them.
  void remove(Step& step);
  /// Removes everything.
  void clear();

  std::vector<AlgorithmFactory::Descriptor> algorithms() const;
  /// False, too, where the algorithm's own check throws.
  bool isCompatible(const AlgorithmFactory::Descriptor& descriptor, const std::vector<DataItem*>& inputs) const;
  /// A step that hasn't run yet. Without inputs for algorithms that make streams from nothing. Null after failed().
  Step* addStep(const std::string& algorithmId, const std::vector<DataItem*>& inputs,
                const Properties* settings = nullptr);
  /// Adds the steps of a chain (an XML file as `kelvaris run --chain` takes it), each on the output of the one before,
  /// and runs them. A step comes into being when its input is there: should one fail, the others follow when it is run
  /// with success. On a stream, each becomes a SingleImageStreamAlgorithmExecutor.
  void applyChain(const std::filesystem::path& path, DataItem& item);

  /// Runs the step as soon as those before it are done. For a stream's step that has no stream: makes it.
  void run(Step& step);
  /// Gives up a run that is going on or waits. The algorithm may take a while to notice.
  void cancel(Step& step);
  /// True while a step runs or waits for it, or files are read or written.
  bool isBusy() const;

  // Recordings of live streams

  /// Records the next emissions (0: until stopRecording()) into a new item, "<name> recording". The recording ends by
  /// itself when the stream goes away, and, with failed(), when it takes half of the machine's memory. A second
  /// recording of the stream at the same time is refused by failed().
  void startRecording(DataItem& stream, int emissions = 0) { m_recordings.start(stream, emissions); }
  void stopRecording(DataItem& stream) { m_recordings.stop(stream); }
  void stopRecordings() { m_recordings.stopAll(); }
  bool isRecording(const DataItem& stream) const { return m_recordings.isRecording(stream); }
  bool isRecording() const { return !m_recordings.isEmpty(); }

  // Sessions: the list of data, the steps with their settings, and what a window wants to keep. Data of files are kept
  // by their names relative to the session's file; other data that no step makes are written to a folder beside it.

  /// sessionSaved(), or failed().
  void saveSession(const std::filesystem::path& path, const Properties& view = {});
  /// Replaces everything: sessionOpened(), or failed() where the file is none of a session; the workspace is then as it
  /// was. What can't be had of a session (files, algorithms) is told by failed(), and the rest opens. Steps run again,
  /// so that their outputs come later, with the ids that they had.
  void openSession(const std::filesystem::path& path);
  /// The present session's file; empty if there is none.
  const std::filesystem::path& sessionFile() const { return m_sessionFile; }
  /// True if there is something that a session saved now would have and the last one doesn't.
  bool isModified() const { return m_modified; }
  /// For changes that the workspace can't see: the window's own.
  void setModified();
  /// Streams tell nobody that they are set to something else, so that isModified() doesn't know of it before this has
  /// been called. Returns whether they are, since the last call or the last session.
  bool findStreamChanges();

Q_SIGNALS:
  void itemAdded(Kelvaris::Viewer::DataItem* item);
  void itemAboutToBeRemoved(Kelvaris::Viewer::DataItem* item);
  /// Its content, its name or its file.
  void itemChanged(Kelvaris::Viewer::DataItem* item);
  void stepAdded(Kelvaris::Viewer::Step* step);
  /// Whatever refers to its algorithm (controllers) must let go now. Its outputs go next; nobody takes them any more.
  void stepAboutToBeRemoved(Kelvaris::Viewer::Step* step);
  /// Its state, or that it is outdated.
  void stepChanged(Kelvaris::Viewer::Step* step);
  /// How far the run of a step is, or (with null) the work on files: `done` of `steps`, which is 0 where it isn't
  /// known. A few times a second at most. The end of a run is a stepChanged(), that of the work on files a progress of
  /// an empty text.
  void progress(Kelvaris::Viewer::Step* step, const QString& text, int done, int steps);
  void busyChanged(bool busy);
  /// A few times a second at most; 0 when the recording has ended.
  void recordingChanged(Kelvaris::Viewer::DataItem* stream, int emissions);
  void saved(const QString& path);
  void sessionSaved(const QString& path);
  /// With what the window gave to saveSession(). Items that steps make come later.
  void sessionOpened(const QString& path, const Kelvaris::Properties& view);
  void modifiedChanged(bool modified);
  void failed(const QString& text);

private:
  struct PendingStep {
    int id; ///< that it will have
    Session::Step step;
  };

  // Steps and runs
  Step* createStep(int id, const std::string& algorithmId, const std::vector<DataItem*>& inputs,
                   const Properties* settings, const std::function<void(Step&)>& prepare);
  void openStream(Step& step);
  void takeChanges();
  void makeDirty(Step& step, Step::Clock::time_point due);
  void setState(Step& step, Step::State state, const QString& error = {});
  void schedule();
  void start(Step& step);
  void execute(Run& run);
  void finish(const std::shared_ptr<Run>& run);
  void takeOutput(Step& step, std::unique_ptr<SharedImageSet> output);
  void reportRun();
  void processPending();
  void updateBusy();

  // Removal
  void removeConsumers(const DataItem& item);
  void removeItem(DataItem& item);
  void removeStep(Step& step);
  void removeAll();
  std::vector<DataItem*> outputsOf(const Step& step) const;

  // Sessions
  /// As it is now. `unsaved` gets the images that have to be written to the folder.
  Session session(const std::filesystem::path& dataFolder,
                  std::map<int, std::shared_ptr<const SharedImageSet>>& unsaved);
  void restore(const std::filesystem::path& file, SessionFile::Opened& opened);
  void setUnmodified();
  /// The item has another file now, or none, or goes.
  void leaveFile(const DataItem& item);
  /// Has the stream that the step has made from nothing do what it did.
  void restoreStream(Step& step, const std::string& state);
  /// By the ids of the steps.
  std::map<int, Properties> streamSettings() const;

  QString unusedName(const QString& name) const;

  std::vector<std::unique_ptr<DataItem>> m_items;
  std::vector<std::unique_ptr<Step>> m_steps;
  int m_nextId = 1;                   ///< of items and of steps
  std::vector<PendingStep> m_pending; ///< that wait for their inputs
  bool m_pendingDue = false;          ///< they are going to be looked at again
  StreamRecordings m_recordings;

  std::shared_ptr<Run> m_run; ///< the one that is going on
  QTimer m_due;
  bool m_wasBusy = false;

  bool m_modified = false;
  int m_modifications = 0; ///< how often it has been modified
  std::filesystem::path m_sessionFile;
  std::set<std::filesystem::path> m_unusedFiles; ///< that sessions have written, for items that don't need them now
  std::map<int, Properties> m_streamSettings;    ///< as they were when it was last seen to

  CoalescedCall m_changes, m_runReports;
  FileJobs m_files; ///< last, these two: what they do uses the rest
  BackgroundThread m_runner;
};

} // namespace Kelvaris::Viewer
