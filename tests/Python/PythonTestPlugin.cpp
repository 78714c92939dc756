// A plugin for tests of the Python module: an algorithm of many steps, a stream that counts, and one that
// executes Python.

#include "Core/Log.h"
#include "Core/Parameter.h"
#include "Core/Progress.h"
#include "Lib/KelvarisLibPlugin.h"
#include "Lib/PluginManager.h"
#include "Lib/SharedImageSet.h"
#include "Python/PythonPlugin.h"
#include "Stream/CreateStreamIoAlgorithm.h"
#include "Stream/ImageStream.h"
#include "support/TestPluginExports.h"

#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

namespace {

using namespace Kelvaris;

/// Gives its input back after `steps` steps, each of which takes a millisecond; fails at step `failAt`.
class Steps : public Algorithm {
public:
  explicit Steps(SharedImageSet& input) : m_input(input) {
    registerParameter(&steps);
    registerParameter(&failAt);
  }
  static bool createCompatible(const DataList& data, Algorithm** algorithm) {
    const auto sets = data.getImages(Data::UnknownKind, Data::UnknownModality);
    if (sets.size() != 1) return false;
    if (algorithm) *algorithm = std::make_unique<Steps>(*sets[0]).release();
    return true;
  }
  void compute() override {
    m_status = Failure;
    const auto task = m_progress->addTask("Stepping", steps);
    for (int i = 0; i < steps; ++i) {
      if (task->wasCanceled()) {
        m_status = Canceled;
        return;
      }
      if (i == failAt) {
        Log::error("Steps", "Step {} is broken", i);
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the work
      task->incrementStep(1);
    }
    m_done = true;
    m_status = Success;
  }
  OwningDataList takeOutput() override {
    OwningDataList list;
    if (std::exchange(m_done, false)) list.add(m_input.clone(4));
    return list;
  }

  Parameter<int> steps{"steps", 3};
  Parameter<int> failAt{"failAt", -1};

private:
  SharedImageSet& m_input;
  bool m_done = false;
};

/// Frame n is one pixel of the value n; frame `last` is the last one, after which the stream stops by an exception if
/// it may, and else emits no more.
class Counting : public ImageStream {
public:
  Counting() : ImageStream("counting") {
    registerParameter(&last);
    registerParameter(&ends);
  }
  ~Counting() override { closeAsync().wait(); }
  bool workerThreadRequiresOpenGl() const override { return false; }
  void configure(const Properties* properties) override {
    int value = 0;
    if (properties && properties->param("last", value) && value < 0)
      return Log::error("Counting", "last is {}, expected 0 or more", value);
    ImageStream::configure(properties);
  }

  Parameter<int> last{"last", 1000000000};
  Parameter<bool> ends{"ends", false};

protected:
  bool startImpl() override {
    m_next = 0;
    return true;
  }
  Continuation doWork() override {
    if (m_next > last) {
      if (ends) throw std::runtime_error("there are no more numbers");
      return Continuation::never();
    }
    auto pixel = std::make_shared<TypedImage<int>>(1, 1);
    (*pixel)[0] = m_next;
    auto images = std::make_shared<SharedImageSet>();
    images->add(std::make_shared<SharedImage>(std::shared_ptr<Image>(std::move(pixel))), m_next);
    const auto data = std::make_shared<ImageStreamData>(std::move(images));
    data->setTimestampDevice(static_cast<std::uint64_t>(m_next));
    ++m_next;
    dataSignal.emitSignal(data);
    return Continuation::at(Continuation::Clock::now() + std::chrono::microseconds(200));
  }

private:
  int m_next = 0;
};

/// Has the host's interpreter execute a text.
class Execute : public Algorithm {
public:
  Execute() { registerParameter(&text); }
  static bool createCompatible(const DataList& data, Algorithm** algorithm) {
    if (!data.empty()) return false;
    if (algorithm) *algorithm = std::make_unique<Execute>().release();
    return true;
  }
  void compute() override {
    m_status = Failure;
    for (const PluginManager::Entry& entry : PluginManager::get().entries())
      if (auto* plugin = dynamic_cast<PythonPlugin*>(entry.plugin)) {
        plugin->interpreter()->execute(text);
        m_status = Success;
      }
  }
  OwningDataList takeOutput() override { return {}; }

  Parameter<std::string> text{"text", ""};
};

class Factory : public AlgorithmFactory {
public:
  Factory() : AlgorithmFactory("PythonTest") {
    registerAlgorithm<Steps>("Steps", "Test;Steps");
    registerAlgorithm<CreateStreamIoAlgorithm<Counting, true, true>>("Counting", "Test;Counting");
    registerAlgorithm<Execute>("Execute", "Test;Execute");
  }
};

class Plugin : public KelvarisLibPlugin {
public:
  std::string author() const override { return "tests"; }
  std::string description() const override { return "for tests of the Python module"; }
  int init() override {
    registerFactories(std::make_unique<Factory>(), nullptr, nullptr);
    return 0;
  }
};

} // namespace

KELVARIS_TEST_PLUGIN(Plugin, "Kelvaris.PythonTest", "");
