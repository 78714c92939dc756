#include "viewer/Session.h"

#include "GL/RequireGL.h"
#include "Lib/KelvarisFile.h"
#include "Lib/PluginManager.h"
#include "Lib/PropertiesFile.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/TemporaryFolder.h"
#include "viewer/LiveFeed.h"
#include "viewer/ViewerTestTools.h"

#include <filesystem>
#include <set>

namespace Kelvaris::Viewer {
namespace {

namespace fs = std::filesystem;

class SessionTest : public WorkspaceTest {
protected:
  /// Saves, and returns the file's text.
  std::string save(const fs::path& path, const Properties& view = {}) {
    workspace->saveSession(path, view);
    EXPECT_TRUE(awaitIdle());
    EXPECT_EQ(workspace->sessionFile(), path);
    EXPECT_FALSE(workspace->isModified());
    return Tests::readFile(path);
  }
  /// In a workspace of its own.
  void reopen(const fs::path& path) {
    make();
    QObject::connect(workspace.get(), &Workspace::sessionOpened,
                     [this](const QString&, const Properties& view) { opened = view; });
    workspace->openSession(path);
    EXPECT_TRUE(awaitIdle());
  }

  Tests::TemporaryFolder folder;
  std::optional<Properties> opened;
};

TEST_F(SessionTest, ComesBackAsItWas) {
  KelvarisFile::save(folder / "recording.kvx", *imagesOf(1.0F, 3));
  workspace->open(folder / "recording.kvx");
  ASSERT_TRUE(awaitIdle());
  DataItem& file = *workspace->items()[0];
  DataItem& unsaved = add(5.0F);
  workspace->remove(add(6.0F)); // leaves a gap in the ids
  workspace->rename(unsaved, QString::fromUtf8("Gewebe \xc3\xa4 & <2>"));
  Step& first = addResult(file, 0.1);
  gainOf(first).label = " text, with \"quotes\" and blanks ";
  gainOf(first).offset = 1.0 / 3.0;
  Step& second = addResult(*first.output(), 3.0);
  workspace->rename(*second.output(), "Result");
  Step& idle = addGain(unsaved, 1e-300);
  ASSERT_TRUE(awaitIdle());
  EXPECT_TRUE(workspace->isModified());
  const double result = valueOf(*second.output()->images(), 2);
  EXPECT_EQ(idle.output(), nullptr);

  Properties view;
  view.setParam("selected", second.output()->id());
  view.addSubProperties("window").setParam("level", 0.5);
  const std::string text = save(folder / "a.session", view);
  EXPECT_EQ(unsaved.file().parent_path(), folder / "a.data");

  // It may be moved as a whole.
  Tests::TemporaryFolder moved;
  for (const char* name : {"a.session", "a.data", "recording.kvx"})
    fs::rename(folder / name, moved / name);
  reopen(moved / "a.session");
  EXPECT_TRUE(failures.isEmpty());
  EXPECT_FALSE(workspace->isModified());
  ASSERT_TRUE(opened);
  EXPECT_EQ(*opened, view);
  ASSERT_EQ(workspace->items().size(), 4U);
  ASSERT_EQ(workspace->steps().size(), 3U);
  int selected = 0;
  ASSERT_TRUE(opened->param("selected", selected));
  ASSERT_NE(workspace->item(selected), nullptr);
  EXPECT_EQ(workspace->item(selected)->name(), "Result");
  EXPECT_EQ(valueOf(*workspace->item(selected)->images(), 2), result);
  EXPECT_EQ(workspace->items()[1]->name(), QString::fromUtf8("Gewebe \xc3\xa4 & <2>"));
  EXPECT_EQ(valueOf(*workspace->items()[1]->images()), 5.0);
  EXPECT_EQ(workspace->steps()[2]->output(), nullptr) << "what hadn't run doesn't";
  EXPECT_EQ(save(moved / "a.session", *opened), text);

  // Under another name, data that belong to the session go along.
  Tests::TemporaryFolder elsewhere;
  save(elsewhere / "b.session");
  EXPECT_TRUE(fs::exists(elsewhere / "b.data"));
  fs::remove_all(moved / "a.data");
  fs::remove(moved / "a.session");
  reopen(elsewhere / "b.session");
  EXPECT_TRUE(failures.isEmpty());
  EXPECT_EQ(workspace->items().size(), 4U);
}

TEST_F(SessionTest, StepsWaitForThoseThatFail) {
  const Tests::ExpectedLog log;
  Step& first = addResult(add(1.0F));
  addResult(*first.output());
  gainOf(first).trouble = GainAlgorithm::Trouble::Fail;
  const std::string text = save(folder / "a.session");
  reopen(folder / "a.session");
  ASSERT_EQ(workspace->steps().size(), 1U);
  EXPECT_EQ(workspace->steps()[0]->state(), Step::State::Failed);
  EXPECT_EQ(save(folder / "a.session"), text) << "what waits isn't lost";
  gainOf(*workspace->steps()[0]).trouble = GainAlgorithm::Trouble::None;
  ASSERT_TRUE(await([&] { return workspace->items().size() == 3 && !workspace->isBusy(); }));
  EXPECT_EQ(valueOf(*workspace->items()[2]->images()), 4.0);
}

TEST_F(SessionTest, OpensTheRestWhereSomethingIsMissing) {
  DataItem& lost = add(1.0F);
  DataItem& kept = add(5.0F);
  addResult(*addResult(lost).output());
  Step& result = addResult(kept);
  for (DataItem* item : {&lost, &kept})
    workspace->save(*item, folder / QString("%1.kvx").arg(item->id()).toStdString());
  ASSERT_TRUE(awaitIdle());
  std::string text = save(folder / "a.session");
  const int resultId = result.output()->id();
  fs::remove(lost.file());
  reopen(folder / "a.session");
  ASSERT_EQ(failures.size(), 3);
  EXPECT_CONTAINS(failures[0].toStdString(), "\"Images\" of the session is missing");
  EXPECT_CONTAINS(failures[0].toStdString(), "1.kvx");
  EXPECT_EQ(failures[1], "The step Test.Gain is left out: what it works on is missing");
  EXPECT_EQ(failures[2], failures[1]);
  EXPECT_TRUE(workspace->isModified());
  ASSERT_EQ(workspace->items().size(), 2U);
  ASSERT_NE(workspace->item(resultId), nullptr);
  EXPECT_EQ(valueOf(*workspace->item(resultId)->images()), 10.0);

  // A plugin that isn't there.
  for (auto at = text.find("Test.Gain"); at != std::string::npos; at = text.find("Test.Gain"))
    text.replace(at, 9, "Other.Gain");
  Tests::writeFile(folder / "b.session", text);
  failures.clear();
  reopen(folder / "b.session");
  EXPECT_EQ(failures.size(), 4);
  EXPECT_CONTAINS(failures.join("\n").toStdString(), "There is no algorithm \"Other.Gain\"");
  EXPECT_EQ(workspace->items().size(), 1U);
}

TEST_F(SessionTest, BrokenFilesLeaveTheWorkspaceAsItWas) {
  const std::string head = "<param key=\"format\">kelvaris-session</param><param key=\"version\">1</param>";
  const auto item = [](const std::string& id, const std::string& file = "a.kvx") {
    return "<properties key=\"item\"><param key=\"id\">" + id + "</param><param key=\"file\">" + file +
           "</param></properties>";
  };
  const auto step = [](const std::string& inputs, const std::string& output, const std::string& id = "Test.Gain") {
    return "<properties key=\"step\"><param key=\"algorithm\">" + id + "</param><param key=\"inputs\">" + inputs +
           "</param><param key=\"output\">" + output + "</param></properties>";
  };
  const struct {
    std::string content;
    const char* error;
  } cases[] = {{"no xml", "Broken XML"},
               {"<chain/>", "a.session"},
               {"<properties/>", "It is no session (its format is \"\", expected \"kelvaris-session\")"},
               {"<properties><param key=\"format\">kelvaris-session</param></properties>", "It has version 0"},
               {head + item(""), "has the id \"\", which is no such value"},
               {head + item("0"), "no id of 1 or more"},
               {head + item("-3"), "no id of 1 or more"},
               {head + item("2000000000"), "An item has the id 2000000000"},
               {head + item("1", ""), "The item 1 has no file"},
               {head + item("1") + item("1"), "Two items have the id 1"},
               {head + step("", "1", ""), "A step names no algorithm"},
               {head + item("1") + step("2", "3"), "takes item 2, which is neither"},
               {head + item("1") + step("2", "3") + step("1", "2"), "takes item 2, which is neither"},
               {head + item("1") + step("1 x", "3"), "has the inputs \"1 x\""},
               {head + item("1") + step("1", "1"), "Two items have the id 1"},
               {head + item("1") + step("1", "-1"), "has the output -1"}};
  Step& present = addResult(add(1.0F));
  for (const auto& c : cases) {
    const bool whole = c.content.starts_with("<param");
    Tests::writeFile(folder / "a.session", whole ? "<properties>" + c.content + "</properties>" : c.content);
    workspace->openSession(folder / "a.session");
    ASSERT_TRUE(awaitIdle());
    ASSERT_EQ(failures.size(), 1) << c.content;
    EXPECT_CONTAINS(failures[0].toStdString(), c.error);
    EXPECT_CONTAINS(failures.takeFirst().toStdString(), "a.session");
  }
  workspace->openSession(folder / "none.session");
  workspace->saveSession(folder / "none" / "a.session");
  ASSERT_TRUE(awaitIdle());
  ASSERT_EQ(failures.size(), 2);
  EXPECT_CONTAINS(failures[0].toStdString(), "none.session");
  EXPECT_CONTAINS(failures[1].toStdString(), "none");
  ASSERT_EQ(workspace->items().size(), 2U);
  EXPECT_EQ(workspace->steps()[0].get(), &present);
  EXPECT_TRUE(workspace->isModified());
  EXPECT_EQ(workspace->sessionFile(), "");
}

TEST_F(SessionTest, KnowsWhatIsModified) {
  Step& step = addResult(add(1.0F));
  save(folder / "a.session");
  const std::function<void()> changes[] = {[&] { add(2.0F); },
                                           [&] { gainOf(step).factor = 7.0; },
                                           [&] { workspace->rename(*step.output(), "B"); },
                                           [&] { addGain(*step.output()); },
                                           [&] { workspace->remove(*workspace->steps().back()); },
                                           [&] { workspace->setModified(); }};
  for (const auto& change : changes) {
    change();
    EXPECT_TRUE(await([&] { return workspace->isModified(); }));
    ASSERT_TRUE(awaitIdle());
    save(folder / "a.session");
  }
  // What changes while the file is being written isn't in it.
  workspace->saveSession(folder / "a.session");
  workspace->rename(*step.output(), "C");
  ASSERT_TRUE(awaitIdle());
  EXPECT_TRUE(workspace->isModified());
}

TEST_F(SessionTest, RemovesItsOwnFilesThatNothingUses) {
  for (const float value : {1.0F, 2.0F, 3.0F})
    add(value);
  save(folder / "a.session");
  const fs::path data = folder / "a.data";
  KelvarisFile::save(data / "mine.kvx", *imagesOf(9.0F));
  reopen(folder / "a.session");
  workspace->open(data / "mine.kvx");
  ASSERT_TRUE(awaitIdle());
  workspace->remove(*workspace->items()[3]);
  workspace->remove(*workspace->items()[0]);
  EXPECT_TRUE(fs::exists(data / "1.kvx")) << "the session as it was saved needs it";
  const auto saveAndList = [&] {
    save(folder / "a.session");
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(data))
      names.insert(entry.path().filename());
    return names;
  };
  using Names = std::set<std::string>;
  fs::copy_file(folder / "a.session", folder / "copy.session");
  EXPECT_EQ(saveAndList(), Names({"1.kvx", "2.kvx", "3.kvx", "mine.kvx"})) << "the copy needs it";
  fs::remove(folder / "copy.session");
  workspace->remove(*workspace->items()[0]);
  EXPECT_EQ(saveAndList(), Names({"3.kvx", "mine.kvx"}));
  // What couldn't be read isn't lost, and a session that can't be written leaves no data.
  Tests::writeFile(data / "3.kvx", "broken");
  reopen(folder / "a.session");
  add(4.0F);
  fs::create_directory(folder / "b.session");
  workspace->saveSession(folder / "b.session");
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(failures.size(), 2) << failures.join("\n").toStdString();
  EXPECT_FALSE(fs::exists(folder / "b.data"));
  EXPECT_EQ(saveAndList(), Names({"3.kvx", "4.kvx", "mine.kvx"}));
}

/// The simulated stream, an executor of the plugin on it, and one of the host on that.
TEST_F(SessionTest, StreamsComeBackAndRun) {
  KELVARIS_REQUIRE_GL();
  PluginManager::get().load(KELVARIS_PROGRAM_PLUGIN);
  Properties settings;
  settings.setParam("targetFrameRate", 200.0);
  settings.setParam("noiseAmplitude", 2.5);
  settings.setParam("useSIMUS", false);
  settings.subProperties("sequence") = PropertiesFile::load(KELVARIS_EXAMPLES "/sequences/plane-wave.xml");
  Step* const source = workspace->addStep("CreateStreamIoSimulatedChannelData", {}, &settings);
  ASSERT_TRUE(source && source->output() && source->output()->stream());
  EXPECT_TRUE(source->isStream());

  Tests::writeFile(folder / "chain.xml", "<chain><step id=\"EnvelopeDetection\"/><step id=\"LogCompression\">"
                                         "<param key=\"dynamicRange\">37 dB</param></step></chain>");
  workspace->applyChain(folder / "chain.xml", *source->output());
  ASSERT_TRUE(await([&] { return workspace->steps().size() == 3 && workspace->steps()[2]->output(); }));
  DataItem& compressed = *workspace->steps()[2]->output();
  EXPECT_EQ(compressed.name(), "Log Compression");
  ASSERT_NE(workspace->addStep("EnvelopeDetection", {&compressed}), nullptr);
  const auto configurations = [this] {
    std::vector<Properties> all;
    for (const auto& step : workspace->steps())
      step->algorithm().configuration(&all.emplace_back());
    return all;
  };
  for (const bool restored : {false, true}) {
    SCOPED_TRACE(restored);
    ASSERT_EQ(workspace->items().size(), 4U);
    LiveFeed feed(*workspace->items()[3]->stream());
    ASSERT_TRUE(await([&] { return feed.shown() > 1; }));
    if (restored) break;
    save(folder / "a.session");
    EXPECT_FALSE(workspace->findStreamChanges());
    Properties changed;
    source->algorithm().configuration(&changed);
    changed.setParam("noiseAmplitude", 3.5);
    source->output()->stream()->configure(&changed); // as its panel does
    EXPECT_TRUE(workspace->findStreamChanges());
    EXPECT_TRUE(workspace->isModified());
    save(folder / "a.session");
    EXPECT_FALSE(workspace->findStreamChanges());
    const auto before = configurations();
    workspace->openSession(folder / "a.session"); // in the place of those that run
    ASSERT_TRUE(await([&] {
      return workspace->items()[0]->name() == "Simulated Ultrasound Channel Data" && workspace->steps().size() == 4 &&
             workspace->steps()[3]->output() != nullptr;
    }));
    ASSERT_TRUE(awaitIdle());
    EXPECT_EQ(configurations(), before);
  }
  workspace->remove(*workspace->items()[1]);
  EXPECT_EQ(workspace->items().size(), 1U);
  EXPECT_EQ(workspace->steps().size(), 1U);
  using State = Stream::State;
  for (const auto& [command, state] :
       {std::pair(&Stream::pauseAsync, State::Paused), std::pair(&Stream::stopAsync, State::Open)}) {
    EXPECT_TRUE((workspace->items()[0]->stream()->*command)().get());
    std::string text = save(folder / "a.session");
    reopen(folder / "a.session");
    EXPECT_TRUE(await([&, wanted = state] { return workspace->items()[0]->stream()->state() == wanted; }));
    if (state == State::Paused) continue;
    text.replace(text.find("stopped"), 7, "asleep");
    Tests::writeFile(folder / "b.session", text);
    reopen(folder / "b.session");
    ASSERT_EQ(failures.size(), 1);
    EXPECT_CONTAINS(failures.takeFirst().toStdString(), "is \"asleep\", expected running, paused or stopped; it runs");
    EXPECT_EQ(workspace->items()[0]->stream()->state(), State::Running);
  }
  EXPECT_TRUE(failures.isEmpty()) << failures.join("\n").toStdString();
}

} // namespace
} // namespace Kelvaris::Viewer
