#include "Lib/PluginManager.h"

#include "Lib/DataComponentFactory.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/PluginAutoRegistrationGuard.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <elf.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <string>

namespace Kelvaris {
namespace fs = std::filesystem;
namespace {

const fs::path kPlugin = TEST_PLUGIN_FILE;

bool isInProcess(const fs::path& library) {
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle) dlclose(handle);
  return handle != nullptr;
}

class PluginManagerTest : public ::testing::Test {
protected:
  ~PluginManagerTest() override {
    unsetenv("TEST_PLUGIN");
    unsetenv("KELVARIS_PLUGIN_PATH");
    PluginManager::get().unloadAll();
  }

  fs::path write(const std::string& name, const std::string& bytes) const {
    Tests::writeFile(m_folder / name, bytes);
    return m_folder / name;
  }
  /// The message with which load() refuses the file; empty if it doesn't.
  static std::string refusal(const fs::path& file) {
    return Tests::errorOf<PluginError>([&] { PluginManager::get().load(file); });
  }

  /// True if the library is in the process and what it registers is known; false if it left nothing behind.
  static bool isActive() {
    const auto present = PluginAutoRegistrationGuard::presentIds();
    const bool parts[] = {isInProcess(kPlugin), std::count(present.begin(), present.end(), "Test.Plugin") > 0,
                          FactoryRegistry::get().algorithmDescriptor("Test.Nothing", false).has_value(),
                          DataComponentFactory::get().create("Test.Mark") != nullptr};
    for (const bool part : parts)
      EXPECT_EQ(part, parts[0]);
    return parts[0];
  }

  const std::string m_good = Tests::readFile(kPlugin);
  const Tests::TemporaryFolder m_folder;
};

std::string replaced(std::string bytes, const std::string& from, const std::string& to) {
  EXPECT_EQ(from.size(), to.size());
  const std::size_t at = bytes.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) bytes.replace(at, to.size(), to);
  return bytes;
}

TEST_F(PluginManagerTest, LoadsRegistersAndReallyUnloads) {
  PluginManager& manager = PluginManager::get();
  PluginBase& plugin = manager.load(kPlugin);
  EXPECT_EQ(plugin.description(), "for tests");
  EXPECT_EQ(&manager.load(kPlugin), &plugin) << "a second load gives the same object";
  ASSERT_EQ(manager.entries().size(), 1u);
  EXPECT_EQ(manager.entries()[0].state, PluginManager::Loaded);
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(isActive());
    manager.unload("Test.Plugin");
    EXPECT_FALSE(isActive());
    EXPECT_THROW(manager.unload("Test.Plugin"), PluginError);
    manager.load(kPlugin);
  }
  void* held = dlopen(kPlugin.c_str(), RTLD_NOW);
  EXPECT_THROW(manager.unload("Test.Plugin"), PluginError) << "it stays in the process";
  dlclose(held);
}

TEST_F(PluginManagerTest, RefusesFilesBeforeTheirCodeRuns) {
  const std::string& good = m_good;
  std::string otherMachine = good, program = good;
  otherMachine[offsetof(Elf64_Ehdr, e_machine)] = static_cast<char>(EM_AARCH64);
  program[offsetof(Elf64_Ehdr, e_type)] = ET_EXEC;
  const struct {
    const char* name;
    std::string bytes;
    std::vector<std::string> parts; // of the message
  } cases[] = {
      {"empty.so", "", {"is not a plugin", "no ELF file"}},
      {"arm.so", otherMachine, {"another machine", "machine 183", "machine 62"}},
      {"program.so", program, {"no shared library", "ELF type 2", "expected 3"}},
      {"half.so", good.substr(0, good.size() / 2), {"cut short or damaged"}},
      {"version.so", replaced(good, "hostversion=4.5.0", "hostversion=4.4.9"), {"version 4.4.9", "this is 4.5.0"}},
      {"flags.so",
       replaced(good, "GLIBCXX_DEBUG:_GLIBCXX_DEBUG", "GLIBCXX_DEBUG:1@@@@@@@@@@@@@"),
       {"GLIBCXX_DEBUG:1@", "this host has \"GLIBCXX_DEBUG:_GLIBCXX_DEBUG\""}},
      {"nofields.so", replaced(good, "|hostversion=", "|hostversion:"), {"expected", "hostversion="}},
      {"noexport.so",
       replaced(good, "kelvarisCreatePlugin", "kelvarisDestroyPlugi"),
       {"does not export kelvarisCreatePlugin"}},
  };
  for (const auto& c : cases) {
    const fs::path file = write(c.name, c.bytes);
    const std::string message = refusal(file);
    EXPECT_CONTAINS(message, file.string());
    for (const std::string& part : c.parts)
      EXPECT_CONTAINS(message, part) << c.name;
    EXPECT_FALSE(isInProcess(file)) << c.name;
    EXPECT_EQ(PluginManager::get().entries().back().state, PluginManager::Refused);
  }
  EXPECT_CONTAINS(refusal(m_folder / "absent.so"), "No such file");
  EXPECT_CONTAINS(refusal(m_folder.path()), "it is no file");
}

TEST_F(PluginManagerTest, RefusesPluginsThatCanNotRunAndLeavesNothingBehind) {
  const struct {
    const char* mode;
    const char* message;
  } cases[] = {{"dependency", "needs Test.Absent, which is not loaded"},
               {"fail", "init() of the plugin Test.Plugin failed with 7"},
               {"throw", "init() of the plugin Test.Plugin failed: no memory for the test"}};
  for (const auto& c : cases) {
    setenv("TEST_PLUGIN", c.mode, 1);
    EXPECT_CONTAINS(refusal(kPlugin), c.message);
    EXPECT_FALSE(isActive());
  }
  unsetenv("TEST_PLUGIN");
  EXPECT_EQ(refusal(kPlugin), "");
  EXPECT_CONTAINS(refusal(write("libTwinPlugin.so", m_good)), "has the id Test.Plugin, as has");
}

TEST_F(PluginManagerTest, NoDamagedByteCrashesTheReader) {
  // The reader only: a library whose code is damaged would crash in its own right. The tables that it goes by lie at
  // both ends of the file.
  const std::size_t size = m_good.size();
  const auto step = [&](std::size_t at) { return at < 64 ? 1 : at < 1024 ? 5 : at + 4096 < size ? 4999 : 41; };
  for (std::size_t at = 0; at < size; at += static_cast<std::size_t>(step(at))) {
    std::string damaged = m_good;
    damaged[at] = static_cast<char>(~damaged[at]);
    Tests::errorOf<PluginError>([&] { PluginFile::read(write(std::to_string(at) + ".so", damaged)); });
  }
}

TEST_F(PluginManagerTest, LooksForPluginsWhereTheEnvironmentSays) {
  fs::copy(kPlugin, m_folder / "libFoundPlugin.so");
  write("libBrokenPlugin.so", "broken");
  write("libOther.so", "not looked at");
  setenv("KELVARIS_PLUGIN_PATH", (m_folder.path().string() + "::/nowhere/libAbsentPlugin.so").c_str(), 1);
  EXPECT_EQ(PluginManager::searchPath(), (std::vector<fs::path>{m_folder.path(), "/nowhere/libAbsentPlugin.so"}));
  Tests::ExpectedLog log;
  EXPECT_EQ(PluginManager::get().loadAll(), 1);
  EXPECT_EQ(log.messages().size(), 2u);
  EXPECT_TRUE(log.contains("libBrokenPlugin.so\" is not a plugin"));
  EXPECT_TRUE(log.contains("libAbsentPlugin.so\" can't be read"));
  EXPECT_TRUE(FactoryRegistry::get().algorithmDescriptor("Test.Nothing", false));

  unsetenv("KELVARIS_PLUGIN_PATH");
  const auto places = PluginManager::searchPath();
  const fs::path libraries = fs::canonical("/proc/self/exe").parent_path().parent_path() / "lib";
  EXPECT_NE(std::find(places.begin(), places.end(), libraries), places.end());
}

} // namespace
} // namespace Kelvaris
