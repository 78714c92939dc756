#include "viewer/Workspace.h"

#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/TemporaryFolder.h"
#include "viewer/ViewerTestTools.h"

#include <functional>
#include <thread>

namespace Kelvaris::Viewer {
namespace {

using Tests::ExpectedLog;
using State = Step::State;

TEST_F(WorkspaceTest, AChangeReachesAllThatDependsOnIt) {
  DataItem& input = add(1.0F, 3);
  Step& first = addGain(input, 2.0);
  ASSERT_FALSE(workspace->isBusy()) << "a step runs when it is asked to";
  workspace->run(first);
  ASSERT_TRUE(awaitIdle());
  Step& second = addResult(*first.output(), 10.0);
  DataItem& output = *second.output();
  SharedImageSet* const set = output.images();
  auto seen = output.snapshot();
  const std::weak_ptr<SharedImage> old = seen->shared(2);
  EXPECT_EQ(valueOf(*set, 2), 60.0);

  // From another thread, and in a burst, which costs far fewer runs.
  std::thread([&] {
    for (int i = 1; i <= 100; ++i)
      gainOf(first).factor = 3.0 + i;
  }).join();
  ASSERT_TRUE(await([&] { return valueOf(*output.images(), 2) == 3090.0; }));
  EXPECT_TRUE(awaitIdle());
  EXPECT_LE(gainOf(first).runs, 5);
  EXPECT_EQ(output.images(), set) << "the data keeps its identity";
  EXPECT_EQ(valueOf(*seen, 2), 60.0) << "what a view has been given stays whole";
  seen.reset();
  EXPECT_TRUE(old.expired()) << "and nothing else keeps it";
  EXPECT_EQ(output.images()->timestamp(2), 20.0);
  double factor = 0.0;
  EXPECT_TRUE(first.output()->images()->properties().param("factor", factor));
  EXPECT_EQ(factor, 103.0);
  EXPECT_FALSE(first.isOutdated() || second.isOutdated());
}

TEST_F(WorkspaceTest, AChangeRestartsARunThatGoesOn) {
  for (const auto trouble : {GainAlgorithm::Trouble::None, GainAlgorithm::Trouble::Deaf}) {
    DataItem& input = add(1.0F);
    Step& step = addGain(input);
    Step& other = addResult(input, 7.0);
    gainOf(step).trouble = trouble;
    Gate::get().close();
    workspace->run(step);
    ASSERT_TRUE(await([] { return Gate::get().waiting == 1; }));
    EXPECT_EQ(step.state(), State::Running);
    gainOf(step).factor = 5.0;
    if (trouble == GainAlgorithm::Trouble::Deaf) { // the first run can't be stopped
      ASSERT_TRUE(await([&] { return step.isOutdated(); }));
      EXPECT_EQ(step.output(), nullptr);
    } else {
      ASSERT_TRUE(await([&] { return gainOf(step).runs == 2; }));
    }
    Gate::get().open();
    ASSERT_TRUE(awaitIdle());
    EXPECT_EQ(gainOf(step).runs, 2);
    EXPECT_EQ(valueOf(*step.output()->images()), 5.0);
    EXPECT_FALSE(step.isOutdated());
    EXPECT_EQ(valueOf(*other.output()->images()), 7.0);
    workspace->clear();
  }
}

TEST_F(WorkspaceTest, CancelledStepsKeepTheirOutput) {
  DataItem& input = add(1.0F);
  Step& first = addResult(input);
  Step& second = addResult(*first.output());
  Gate::get().close();
  gainOf(first).factor = 3.0;
  gainOf(second).factor = 4.0;
  ASSERT_TRUE(await([] { return Gate::get().waiting == 1; }));
  EXPECT_EQ(first.state(), State::Running);
  EXPECT_EQ(second.state(), State::Waiting);
  workspace->cancel(second);
  EXPECT_EQ(second.state(), State::Idle);
  workspace->cancel(first);
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(first.state(), State::Idle);
  EXPECT_EQ(valueOf(*second.output()->images()), 4.0);
  EXPECT_TRUE(first.isOutdated() && second.isOutdated());
  Gate::get().open();
  workspace->run(first);
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(valueOf(*second.output()->images()), 12.0);
  EXPECT_TRUE(failures.isEmpty());
}

TEST_F(WorkspaceTest, FailedStepsKeepTheirOutputAndSayWhy) {
  DataItem& input = add(1.0F);
  Step& first = addResult(input);
  Step& second = addResult(*first.output());
  const struct {
    Step* failing;
    std::function<void()> spoil;
    std::function<void()> mend;
    const char* error;
  } cases[] = {
      {&first, [&] { gainOf(first).trouble = GainAlgorithm::Trouble::Fail; },
       [&] { gainOf(first).trouble = GainAlgorithm::Trouble::None; }, "No gain for image 0"},
      {&first, [&] { gainOf(first).trouble = GainAlgorithm::Trouble::Throw; },
       [&] { gainOf(first).trouble = GainAlgorithm::Trouble::None; }, "the device is gone"},
      {&second, [&] { gainOf(second).trouble = GainAlgorithm::Trouble::Nothing; },
       [&] { gainOf(second).trouble = GainAlgorithm::Trouble::None; }, "It made no images"},
      {&second, [&] { gainOf(first).channels = 2; }, [&] { gainOf(first).channels = 1; },
       "It does not work on \"Gain\" (image, 4 x 3, float, 2 channels)"},
  };
  for (const auto& c : cases) {
    const ExpectedLog log;
    c.spoil();
    ASSERT_TRUE(await([&] { return c.failing->state() == State::Failed && !workspace->isBusy(); })) << c.error;
    EXPECT_EQ(c.failing->error().toStdString(), c.error);
    EXPECT_TRUE(c.failing->isOutdated());
    EXPECT_EQ(valueOf(*second.output()->images()), 4.0);
    c.mend();
    ASSERT_TRUE(await([&] { return c.failing->state() == State::Idle && !workspace->isBusy(); })) << c.error;
    EXPECT_EQ(c.failing->error(), "");
    EXPECT_EQ(valueOf(*second.output()->images()), 4.0);
  }
}

TEST_F(WorkspaceTest, RefusesStepsThatCannotBe) {
  DataItem& input = add(1.0F);
  const struct {
    const char* id;
    std::vector<DataItem*> inputs;
    const char* error;
  } cases[] = {{"Gian", {&input}, "no algorithm \"Gian\" (did you mean \"Gain\"?)"},
               {"Test.Gain", {}, "Gain does not work on nothing"},
               {"Gain", {&input, &input}, "Gain does not work on \"Images\" (image, 4 x 3, float), \"Images\""}};
  for (const auto& c : cases) {
    EXPECT_EQ(workspace->addStep(c.id, c.inputs), nullptr);
    ASSERT_EQ(failures.size(), 1) << c.id;
    EXPECT_CONTAINS(failures.takeFirst().toStdString(), c.error);
  }
  EXPECT_TRUE(workspace->steps().empty());
}

/// input - first - (second - third, fourth): whatever is removed, while whatever runs, goes behind all that need it.
TEST_F(WorkspaceTest, RemovesAllThatDependsInReverseOrder) {
  const char* const runs[] = {"nothing", "first", "third"};
  for (const std::string running : runs)
    for (int target = 0; target < 9; ++target) {
      SCOPED_TRACE(running + " runs, removed: " + std::to_string(target));
      DataItem& input = add(1.0F);
      Step& first = addResult(input);
      Step& second = addResult(*first.output());
      Step& third = addResult(*second.output());
      Step& fourth = addResult(*first.output());
      QStringList gone;
      const auto context = std::make_unique<QObject>();
      QObject::connect(workspace.get(), &Workspace::itemAboutToBeRemoved, context.get(), [&](DataItem* item) {
        EXPECT_GT(valueOf(*item->images()), 0.0);
        for (const auto& step : workspace->steps())
          EXPECT_FALSE(step->inputs()[0] == item);
        gone.append(QString("item %1").arg(item->id()));
      });
      QObject::connect(workspace.get(), &Workspace::stepAboutToBeRemoved, context.get(), [&](Step* step) {
        for (const auto& other : workspace->steps())
          EXPECT_FALSE(step->output() && other->inputs()[0] == step->output());
        gone.append(QString("step %1").arg(step->id()));
      });
      if (running != "nothing") {
        Step& step = running == "first" ? first : third;
        gainOf(step).trouble = GainAlgorithm::Trouble::Deaf; // goes on long after it has been removed
        Gate::get().close();
        workspace->run(step);
        ASSERT_TRUE(await([] { return Gate::get().waiting == 1; }));
      }
      const std::size_t before = workspace->items().size() + workspace->steps().size();
      // What has to be gone then: an item leaves the step that made it.
      const struct {
        Step* step;
        DataItem* item;
        std::size_t gone;
      } targets[] = {{nullptr, &input, 9},         {&first, nullptr, 8},          {nullptr, first.output(), 7},
                     {&second, nullptr, 4},        {nullptr, second.output(), 3}, {&third, nullptr, 2},
                     {nullptr, third.output(), 1}, {&fourth, nullptr, 2},         {nullptr, fourth.output(), 1}};
      if (targets[target].step)
        workspace->remove(*targets[target].step);
      else
        workspace->remove(*targets[target].item);
      EXPECT_EQ(static_cast<std::size_t>(gone.size()), targets[target].gone) << gone.join(", ").toStdString();
      EXPECT_EQ(workspace->items().size() + workspace->steps().size(), before - targets[target].gone);
      Gate::get().open();
      ASSERT_TRUE(awaitIdle());
      workspace->clear();
    }
}

TEST_F(WorkspaceTest, MakesARemovedOutputAnewWhenAsked) {
  Step& step = addResult(add(1.0F));
  const int id = step.output()->id();
  Gate::get().close();
  workspace->run(step);
  workspace->remove(*step.output());
  Gate::get().open();
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(step.output(), nullptr);
  gainOf(step).factor = 3.0;
  QCoreApplication::processEvents();
  EXPECT_FALSE(workspace->isBusy()) << "not for a change of a parameter";
  EXPECT_EQ(step.output(), nullptr);
  workspace->run(step);
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(step.output()->id(), id);
  EXPECT_EQ(valueOf(*step.output()->images()), 3.0);
}

TEST_F(WorkspaceTest, EndsWhileItWorks) {
  Tests::TemporaryFolder folder;
  Step& step = addGain(add(1.0F, 100));
  Gate::get().close();
  workspace->run(step);
  workspace->save(*step.inputs()[0], folder / "a.kvx");
  gainOf(step).factor = 3.0;
  ASSERT_TRUE(await([] { return Gate::get().waiting == 1; }));
  make();
  EXPECT_EQ(Gate::get().waiting, 0);
  for (const std::string& name : folder.names())
    EXPECT_EQ(name, "a.kvx") << "no half file is left";
}

TEST_F(WorkspaceTest, TellsProgressNowAndThen) {
  Step& step = addGain(add(1.0F, 5000));
  int last = -1, reports = 0;
  QObject::connect(workspace.get(), &Workspace::progress, [&](Step* of, const QString& text, int done, int steps) {
    EXPECT_EQ(of, &step);
    EXPECT_EQ(text, "Gain");
    EXPECT_EQ(steps, 5000);
    EXPECT_GE(done, last);
    last = done;
    ++reports;
  });
  Gate::get().close();
  workspace->run(step);
  ASSERT_TRUE(await([&] { return reports == 1; }));
  Gate::get().open();
  ASSERT_TRUE(awaitIdle());
  EXPECT_LT(reports, 2500);
}

TEST_F(WorkspaceTest, ReadsAndWritesFiles) {
  Tests::TemporaryFolder folder;
  DataItem& input = add(1.0F, 3);
  Step& step = addResult(input);
  DataItem& output = *step.output();
  QStringList saved;
  QObject::connect(workspace.get(), &Workspace::saved, [&](const QString& path) { saved.append(path); });

  // Saving what is replaced meanwhile writes what it was.
  workspace->save(output, folder / "old.kvx");
  gainOf(step).factor = 4.0;
  ASSERT_TRUE(await([&] { return saved.size() == 1 && valueOf(*output.images()) == 4.0; }));
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(output.file(), "");
  workspace->save(output, folder / "new.kvx");
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(output.file(), folder / "new.kvx");
  for (const auto& [name, value] : {std::pair("old", 6.0), std::pair("new", 12.0)}) {
    workspace->open(folder / (name + std::string(".kvx")));
    ASSERT_TRUE(awaitIdle());
    const DataItem& read = *workspace->items().back();
    EXPECT_EQ(read.name(), name);
    EXPECT_EQ(read.description(), "3 images, 4 x 3, float");
    EXPECT_EQ(valueOf(*read.images(), 2), value);
    EXPECT_EQ(read.images()->timestamp(2), 20.0);
  }
  EXPECT_TRUE(failures.isEmpty());
}

TEST_F(WorkspaceTest, SaysWhichFilesFail) {
  Tests::TemporaryFolder folder;
  DataItem& input = add(1.0F);
  DataItem& stream = workspace->addData(std::make_unique<ImageStream>("a stream"));
  Tests::writeFile(folder / "text.kvx", "no images");
  Tests::writeFile(folder / "chain.xml", "<chain><step id=\"Gain\"><param key=\"facto\">1</param></step></chain>");
  Tests::writeFile(folder / "unknown.xml", "<chain><step id=\"Gain\"/><step id=\"Blur\"/></chain>");
  const struct {
    std::function<void()> action;
    const char* error;
  } cases[] = {{[&] { workspace->open(""); }, ""},
               {[&] { workspace->open(folder / "none.kvx"); }, "none.kvx"},
               {[&] { workspace->open(folder / "text.kvx"); }, "text.kvx"},
               {[&] { workspace->save(input, folder / "none" / "a.kvx"); }, "there is no folder"},
               {[&] { workspace->save(input, folder / "a.png"); }, "a.png doesn't end in .kvx"},
               {[&] { workspace->save(stream, folder / "a.kvx"); }, "a stream has to be recorded"},
               {[&] { workspace->startRecording(input); }, "no live stream"},
               {[&] { workspace->applyChain(folder / "none.xml", input); }, "none.xml"},
               {[&] { workspace->applyChain(folder / "chain.xml", input); }, "(did you mean \"factor\"?)"},
               {[&] { workspace->applyChain(folder / "unknown.xml", input); }, "no algorithm \"Blur\""}};
  for (const auto& c : cases) {
    c.action();
    ASSERT_TRUE(awaitIdle());
    ASSERT_EQ(failures.size(), 1) << c.error;
    EXPECT_CONTAINS(failures.takeFirst().toStdString(), c.error);
  }
  EXPECT_EQ(workspace->items().size(), 2U);
  EXPECT_TRUE(workspace->steps().empty());
}

TEST_F(WorkspaceTest, CancelledFilesLeaveNothing) {
  Tests::TemporaryFolder folder;
  workspace->save(add(1.0F, 3000), folder / "a.kvx");
  workspace->open(folder / "b.kvx"); // waits
  bool started = false, ended = false;
  QObject::connect(workspace.get(), &Workspace::progress, [&](Step*, const QString& text) {
    started = started || !text.isEmpty();
    ended = text.isEmpty();
  });
  ASSERT_TRUE(await([&] { return started; }));
  workspace->cancelFiles();
  ASSERT_TRUE(awaitIdle());
  EXPECT_TRUE(ended);
  EXPECT_TRUE(folder.names().empty());
}

TEST_F(WorkspaceTest, AppliesChains) {
  Tests::TemporaryFolder folder;
  Tests::writeFile(folder / "chain.xml", "<chain><step id=\"Gain\"><param key=\"factor\">2</param></step>"
                                         "<step id=\"Test.Gain\"><param key=\"trouble\">1</param></step>"
                                         "<step id=\"Gain\"><param key=\"offset\">5</param></step></chain>");
  workspace->applyChain(folder / "chain.xml", add(1.0F));
  const ExpectedLog log; // the second one fails
  ASSERT_TRUE(await([&] { return workspace->steps().size() == 2 && !workspace->isBusy(); }));
  Step& second = *workspace->steps()[1];
  EXPECT_EQ(second.state(), State::Failed);
  EXPECT_EQ(second.inputs()[0], workspace->steps()[0]->output());
  // Once it is mended, the third follows.
  gainOf(second).trouble = GainAlgorithm::Trouble::None;
  ASSERT_TRUE(await([&] { return workspace->steps().size() == 3 && !workspace->isBusy(); }));
  EXPECT_EQ(valueOf(*workspace->steps()[2]->output()->images()), 7.0);
  // What waits goes with the step that it waits for.
  gainOf(second).trouble = GainAlgorithm::Trouble::Fail;
  workspace->applyChain(folder / "chain.xml", *workspace->items()[0]);
  ASSERT_TRUE(await([&] { return workspace->steps().size() == 5 && !workspace->isBusy(); }));
  workspace->remove(*workspace->steps()[4]);
  EXPECT_TRUE(failures.isEmpty());
}

TEST_F(WorkspaceTest, RecordsStreams) {
  DataItem& item = workspace->addData(std::make_unique<ImageStream>("a stream"));
  EXPECT_EQ(item.description(), "stream of images");
  std::uint64_t time = 0;
  const auto emit = [&](float value) {
    auto data = std::make_shared<ImageStreamData>(imagesOf(value, 2));
    data->setTimestampDevice(++time);
    item.stream()->dataSignal.emitSignal(data);
  };
  // The next two; another thread emits.
  workspace->startRecording(item, 2);
  workspace->startRecording(item);
  ASSERT_EQ(failures.size(), 1);
  EXPECT_EQ(failures.takeFirst(), "a stream is being recorded already");
  std::thread([&] {
    for (const float value : {1.0F, 2.0F, 3.0F})
      emit(value);
  }).join();
  ASSERT_TRUE(await([&] { return workspace->items().size() == 2; }));
  EXPECT_FALSE(workspace->isRecording(item));
  const DataItem& recording = *workspace->items()[1];
  EXPECT_EQ(recording.name(), "a stream recording");
  ASSERT_EQ(recording.images()->size(), 4);
  EXPECT_EQ(valueOf(*recording.images(), 2), 2.0);
  EXPECT_EQ(recording.images()->timestamp(2), 2.0);
  EXPECT_EQ(recording.images()->modality(), Data::Ultrasound);
  EXPECT_NE(workspace->addStep("Gain", {workspace->items()[1].get()}), nullptr) << "it is data as any other";

  // Until it is stopped, or the stream goes.
  for (const bool stop : {true, false}) {
    const std::size_t before = workspace->items().size();
    workspace->startRecording(item);
    emit(7.0F);
    if (stop)
      workspace->stopRecording(item);
    else
      workspace->remove(item);
    ASSERT_EQ(workspace->items().size(), stop ? before + 1 : before);
    EXPECT_EQ(workspace->items().back()->images()->size(), 2);
    if (!stop) break;
    workspace->startRecording(item);
    workspace->stopRecording(item);
    ASSERT_EQ(failures.size(), 1);
    EXPECT_CONTAINS(failures.takeFirst().toStdString(), "Nothing has been recorded");
  }
}

} // namespace
} // namespace Kelvaris::Viewer
