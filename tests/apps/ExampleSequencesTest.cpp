#include "apps/Program.h"
#include "support/ErrorOf.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Kelvaris::Tests {
namespace {

namespace fs = std::filesystem;

const fs::path kSequences = fs::path(KELVARIS_EXAMPLES) / "sequences";

/// The lines of the code blocks of a page, those that end in \ with the next.
std::vector<std::string> commandsOf(const fs::path& page) {
  std::istringstream text(readFile(page));
  std::vector<std::string> commands;
  bool code = false, continues = false;
  for (std::string line; std::getline(text, line);) {
    if (line == "```") {
      code = !code;
    } else if (code) {
      if (!continues) commands.emplace_back();
      continues = line.ends_with('\\');
      commands.back() += continues ? line.substr(0, line.size() - 1) : line;
    }
  }
  return commands;
}

TEST(ExampleSequences, AreWhatTheirCommandsWrite) {
  const TemporaryFolder folder;
  for (const std::string& command : commandsOf(kSequences / "README.md")) {
    ASSERT_TRUE(command.starts_with("kelvaris ")) << command;
    const ProgramResult result = runKelvaris(command.substr(9), folder.path());
    ASSERT_EQ(result.status, 0) << command << "\n" << result.error;
  }
  int files = 0;
  for (const auto& entry : fs::directory_iterator(kSequences)) {
    if (entry.path().extension() != ".xml") continue;
    ++files;
    EXPECT_EQ(readFile(folder / entry.path().filename().string()), readFile(entry.path())) << entry.path();
  }
  EXPECT_EQ(files, 5);
}

TEST(SequenceCommand, SaysWhatIsInASequenceAndWhatIsWrong) {
  const TemporaryFolder folder;
  writeFile(folder / "broken.xml", "<properties><param>");
  writeFile(folder / "images.xml", "\x89HDF");
  const std::string examples = kSequences.string() + "/";
  const struct {
    std::string line;
    int status;
    const char* text; // on standard output or standard error
  } cases[] = {
      {"info " + examples + "interleaved-ensemble.xml", 0, "firings (frame.event): 0.0 1.0 0.1 1.1 0.2"},
      {"info " + examples + "interleaved-ensemble.xml", 0, "frame 1: 3 plane waves of 3 MHz"},
      {"info " + examples + "convex.xml", 0, "convex array (radius 60 mm) of 64 elements, 0.72 mm apart"},
      {"info images.xml", 1, "images.xml doesn't hold an acquisition or a sequence"},
      {"sequence nowhere.xml --output s.xml", 1, "nowhere.xml can't be read"},
      {"sequence . --output s.xml", 1, ". can't be read"},
      {"sequence broken.xml --output s.xml", 1, "broken.xml doesn't hold an acquisition"},
      {"sequence " + examples + "convex.xml --output s.xml", 1, "The acquisition is broken: it has no \"transducer\""},
      {"sequence --output s.xml", 2, "ACQUISITION"}};
  for (const auto& c : cases) {
    const ProgramResult result = runKelvaris(c.line, folder.path());
    EXPECT_EQ(result.status, c.status) << c.line;
    EXPECT_CONTAINS(c.status == 0 ? result.output : result.error, c.text);
    EXPECT_FALSE(fs::exists(folder / "s.xml"));
  }
}

} // namespace
} // namespace Kelvaris::Tests
