// Screenshots FOLDER RECORDING CHAIN [--dark]: pictures of the viewer and of every form for the documentation.
#include "viewer/DataListPanel.h"
#include "viewer/LiveDisplay.h"
#include "viewer/ViewerWindow.h"
#include "viewer/view/ImageView.h"

#include "Gui/DefaultControllerDecorator.h"
#include "Lib/PluginManager.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QDoubleSpinBox>
#include <QScrollArea>
#include <QStatusBar>
#include <QTemporaryFile>
#include <QtTest>

#include <cstdio>
#include <functional>
#include <stdexcept>

namespace {

using namespace Kelvaris;

void waitFor(const char* what, const std::function<bool()>& condition) {
  if (!QTest::qWaitFor(condition, 60'000)) throw std::runtime_error(std::string("never came: ") + what);
}

class Screenshots {
public:
  Screenshots(Viewer::ViewerWindow& window, const QString& folder) : m_window(window), m_folder(folder) {}

  /// `name` says what it shows, and is the file's.
  void window(const QString& name) const {
    settle();
    save(m_window.grab().toImage(), name);
  }

  /// The panel of that title, as high as it wants to be.
  void panel(const QString& title, const QString& name) const {
    for (QDockWidget* dock : m_window.findChildren<QDockWidget*>())
      if (dock->windowTitle() == title) return form(*dock->findChild<DefaultControllerDecorator*>(), name);
    throw std::runtime_error("no panel " + title.toStdString());
  }

  /// The first form of that class.
  void formOfClass(const char* className, const QString& name) const {
    for (QWidget* widget : m_window.findChildren<QWidget*>())
      if (widget->metaObject()->className() == QLatin1String(className)) return form(*widget, name);
    throw std::runtime_error(std::string("no form ") + className);
  }

private:
  /// Until layouts are done.
  static void settle() {
    for (int i = 0; i < 10; ++i)
      QApplication::processEvents();
  }

  void form(QWidget& form, const QString& name) const {
    settle();
    const int height = form.hasHeightForWidth() ? form.heightForWidth(form.width()) : form.sizeHint().height();
    const QSize size = form.size().boundedTo(QSize(form.width(), height));
    save(form.grab(QRect(QPoint(), size)).toImage(), name);
  }

  void save(const QImage& image, const QString& name) const {
    const QString path = m_folder + '/' + name + ".png";
    if (!image.convertToFormat(QImage::Format_RGB888).save(path, "PNG", 0))
      throw std::runtime_error("Can't write " + path.toStdString());
  }

  Viewer::ViewerWindow& m_window;
  QString m_folder;
};

void showRecording(Viewer::ViewerWindow& window, const Screenshots& screenshots, const QString& recording,
                   const QString& chain) {
  Viewer::Workspace& workspace = window.workspace();
  window.openAll({recording.toStdString()}, chain.toStdString());
  waitFor("the last picture", [&] { return workspace.items().size() == 4 && !workspace.isBusy(); });
  waitFor("the window", [&] { return QTest::qWaitForWindowExposed(&window, 1000); });
  screenshots.window("viewer-recording");
  for (const QString& algorithm : QStringList{"IQ Demodulation", "Beamforming", "Log Compression"})
    screenshots.panel(algorithm, "form-" + algorithm.toLower().replace(' ', '-'));
  while (!workspace.items().empty())
    workspace.remove(*workspace.items().front());
}

void showLive(Viewer::ViewerWindow& window, const Screenshots& screenshots) {
  Viewer::Workspace& workspace = window.workspace();
  workspace.addStep("USImgFormation.CreateStreamIoSimulatedChannelData", {});
  window.findChild<QComboBox*>("simulatorComboBox")->setCurrentText("Simple");
  window.findChild<QComboBox*>("phantomTypeCompoBox")->setCurrentText("5mm Grid");
  window.findChild<QComboBox*>("dataTypeComboBox")->setCurrentText("float");
  window.findChild<QDoubleSpinBox*>("targetFrameRateDoubleSpinBox")->setValue(10.0);
  screenshots.panel("Simulated Ultrasound Channel Data", "form-simulated-stream");
  screenshots.formOfClass("Kelvaris::US::AcquisitionSequenceWidget", "form-acquisition-sequence");
  screenshots.formOfClass("Kelvaris::US::FrameAcquisitionWidget", "form-frame-acquisition");
  screenshots.formOfClass("Kelvaris::US::TransducerWidget", "form-transducer");
  // Before it has been told which algorithm.
  Viewer::Step& executor =
      *workspace.addStep("USImgFormation.SingleImageStreamAlgorithmExecutor", {workspace.items().front().get()});
  screenshots.panel("Execute Stream Algorithm", "form-executor");
  workspace.remove(executor);

  QTemporaryFile chain;
  chain.open();
  chain.write(
      "<chain><step id=\"IqDemodulation\"/>"
      "<step id=\"Beamforming\"><param key=\"fNumber\">1.5</param><param key=\"outputSize\">64 512</param></step>"
      "<step id=\"LogCompression\"><param key=\"dynamicRange\">40</param>"
      "<param key=\"referenceAmplitude\">60000</param></step></chain>");
  chain.flush();
  workspace.applyChain(chain.fileName().toStdString(), *workspace.items().front());
  waitFor("live pictures", [&] { return workspace.items().size() == 4 && window.live().shown() > 10; });
  screenshots.window("viewer-live");
}

} // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  const QStringList arguments = QApplication::arguments();
  if (arguments.size() < 4) {
    std::fprintf(stderr, "Screenshots FOLDER RECORDING CHAIN [--dark]\n");
    return 2;
  }
  try {
    PluginManager::get().loadAll();
    Viewer::LogModel log;
    Viewer::ViewerWindow window(nullptr, log);
    window.setDark(arguments.contains("--dark"));
    window.resize(1360, 840);
    window.show();
    QDir().mkpath(arguments[1]);
    const Screenshots screenshots(window, arguments[1]);
    showRecording(window, screenshots, arguments[2], arguments[3]);
    showLive(window, screenshots);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "Screenshots: %s\n", error.what());
    return 1;
  }
}
