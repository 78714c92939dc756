#pragma once

#include "viewer/Workspace.h"

#include "Core/Log.h"
#include "Core/Parameter.h"
#include "Lib/AlgorithmFactory.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"
#include "support/Samples.h"

#include <QCoreApplication>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Kelvaris::Viewer {

/// Where runs of GainAlgorithm stop while it is closed.
class Gate {
public:
  static Gate& get() {
    static Gate gate;
    return gate;
  }
  void close() { m_closed = true; }
  void open() {
    const std::scoped_lock lock(m_mutex);
    m_closed = false;
    m_opened.notify_all();
  }
  /// Until the gate is open, or the progress (may be null) is cancelled.
  void pass(const Progress* progress) {
    ++waiting;
    for (std::unique_lock lock(m_mutex); m_closed && !(progress && progress->wasCanceled());)
      m_opened.wait_for(lock, std::chrono::milliseconds(1));
    --waiting;
  }
  std::atomic<int> waiting = 0;

private:
  std::mutex m_mutex;
  std::condition_variable m_opened;
  std::atomic<bool> m_closed = false;
};

/// On ultrasound images of floats: factor * sample + offset, with the parameter "factor" as a property of the set.
class GainAlgorithm : public Algorithm {
public:
  enum class Trouble { None, Fail, Throw, Nothing, Deaf };

  explicit GainAlgorithm(const SharedImageSet* input) : m_input(input) {
    for (ParameterBase* parameter :
         std::initializer_list<ParameterBase*>{&factor, &offset, &trouble, &label, &channels})
      registerParameter(parameter, &m_mutex);
  }
  static bool createCompatible(const DataList& data, Algorithm** algorithm) {
    const auto sets = data.getImages(Data::UnknownKind, Data::Ultrasound);
    if (sets.size() != 1 || data.size() != 1 || sets[0]->get(0).descriptor().channels() != 1) return false;
    if (algorithm) *algorithm = std::make_unique<GainAlgorithm>(sets[0]).release();
    return true;
  }

  void compute() override {
    m_status = Failure;
    m_output.reset();
    const auto [f, o, wanted, numChannels] = [this] {
      const std::scoped_lock lock(m_mutex);
      return std::tuple(factor.value(), offset.value().value_or(0.0), trouble.value(), channels.value());
    }();
    const auto task = m_progress->addTask("Gain", m_input->size());
    ++runs;
    auto output = m_input->clone(3);
    for (int i = 0; i < m_input->size(); ++i) {
      Gate::get().pass(wanted == Trouble::Deaf ? nullptr : m_progress);
      if (wanted != Trouble::Deaf && task->wasCanceled()) {
        m_status = Canceled;
        return;
      }
      if (wanted == Trouble::Throw) throw std::runtime_error("the device is gone");
      if (wanted == Trouble::Fail) {
        Log::error("GainAlgorithm", "No gain for image {}", i);
        return;
      }
      const auto samples = m_input->get(i).mem();
      ImageDescriptor descriptor = samples->descriptor();
      descriptor.setChannels(numChannels);
      auto image = std::make_shared<SharedImage>(Tests::imageOf(
          descriptor, [&](int x, int y, int z, int) { return f * samples->valueAsDouble(x, y, z, 0) + o; }));
      image->setModality(Data::Ultrasound);
      output->elementwiseComponents().add(m_input->elementwiseComponents().components(i), i);
      output->add(image, m_input->timestamp(i));
      task->incrementStep(1);
    }
    if (wanted == Trouble::Nothing) output->removeImages();
    output->properties().setParam("factor", f);
    m_output = std::move(output);
    m_status = Success;
  }
  OwningDataList takeOutput() override {
    OwningDataList list;
    if (m_output) list.add(std::move(m_output));
    return list;
  }

  Parameter<double> factor{"factor", 1.0};
  Parameter<std::optional<double>> offset{"offset", std::nullopt};
  Parameter<Trouble> trouble{"trouble", Trouble::None};
  Parameter<std::string> label{"label", ""};
  Parameter<int> channels{"channels", 1};
  std::atomic<int> runs = 0;

private:
  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  std::mutex m_mutex;
};

class TestFactory : public AlgorithmFactory {
public:
  TestFactory() : AlgorithmFactory("Test") { registerAlgorithm<GainAlgorithm>("Gain", "Test;Gain"); }
};

/// A set of float images whose samples are `value`, `value` + 1, ...
inline std::unique_ptr<SharedImageSet> imagesOf(float value, int count = 1) {
  auto set = std::make_unique<SharedImageSet>();
  set->setName("Images");
  set->setModality(Data::Ultrasound);
  for (int i = 0; i < count; ++i) {
    set->add(std::make_shared<SharedImage>(Tests::imageOf(
                 ImageDescriptor(PixelFloat, 4, 3), [&](int, int, int, int) { return value + static_cast<float>(i); })),
             10.0 * i);
  }
  return set;
}

inline double valueOf(const SharedImageSet& set, int image = 0) {
  return set.get(image).mem()->valueAsDouble(0, 0, 0, 0);
}

/// Tests with a workspace, with the algorithm "Test.Gain", and with what the workspace has told.
class WorkspaceTest : public ::testing::Test {
protected:
  WorkspaceTest() {
    FactoryRegistry::get().add(std::make_unique<TestFactory>(), nullptr, this);
    make();
  }
  ~WorkspaceTest() override {
    Gate::get().open();
    workspace.reset();
    FactoryRegistry::get().remove(this);
  }
  void make() {
    workspace = std::make_unique<Workspace>();
    QObject::connect(workspace.get(), &Workspace::failed, [this](const QString& text) { failures.append(text); });
  }

  /// Processes events until the condition holds; false after some seconds.
  template <typename F> static bool await(F&& condition) {
    for (int i = 0; i < 1000 && !condition(); ++i) { // qWaitFor() takes breaks
      QCoreApplication::processEvents();
      std::this_thread::yield();
    }
    return QTest::qWaitFor(condition, 90'000);
  }
  bool awaitIdle() {
    return await([this] { return !workspace->isBusy(); });
  }
  DataItem& add(float value, int count = 1) { return workspace->addData(imagesOf(value, count)); }
  Step& addGain(DataItem& input, double factor = 2.0) {
    Properties settings;
    settings.setParam("factor", factor);
    return *workspace->addStep("Test.Gain", {&input}, &settings);
  }
  static GainAlgorithm& gainOf(Step& step) { return dynamic_cast<GainAlgorithm&>(step.algorithm()); }
  /// A gain that has been run.
  Step& addResult(DataItem& input, double factor = 2.0) {
    Step& step = addGain(input, factor);
    workspace->run(step);
    EXPECT_TRUE(awaitIdle());
    return step;
  }

  QStringList failures;
  std::unique_ptr<Workspace> workspace;
};

} // namespace Kelvaris::Viewer
