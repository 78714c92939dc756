#include "Lib/PluginManager.h"

#include "Lib/DataComponentFactory.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/PluginAutoRegistrationGuard.h"
#include "support/EnvironmentVariable.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"
#include "support/TemporaryFolder.h"

#include <dlfcn.h>
#include <elf.h>

#include <algorithm>

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
  ~PluginManagerTest() override { PluginManager::get().unloadAll(); }

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
  EXPECT_EQ(&manager.load(kPlugin), &plugin) << "a second load gives the same object";
  EXPECT_EQ(manager.entries().at(0).state, PluginManager::Loaded);
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
  const std::pair<std::string, const char*> cases[] = {
      // bytes and a part of the message
      {"", "is not a plugin: it is no shared library (no ELF file)"},
      {otherMachine, "another machine (ELF class 2, machine 183)"},
      {program, "no shared library (ELF type 2, expected 3)"},
      {good.substr(0, good.size() / 2), "cut short or damaged"},
      {replaced(good, "hostversion=4.5.0", "hostversion=4.4.9"), "version 4.4.9 of the host; this is 4.5.0"},
      {replaced(good, "GLIBCXX_DEBUG:_GLIBCXX_DEBUG", "GLIBCXX_DEBUG:1@@@@@@@@@@@@@"),
       "this host has \"GLIBCXX_DEBUG:_"},
      {replaced(good, "|hostversion=", "|hostversion:"), "expected \""},
      {replaced(good, "kelvarisCreatePlugin", "kelvarisDestroyPlugi"), "does not export kelvarisCreatePlugin"}};
  for (const auto& [bytes, part] : cases) {
    const fs::path file = write("a.so", bytes);
    const std::string message = refusal(file);
    EXPECT_CONTAINS(message, file.string());
    EXPECT_CONTAINS(message, part);
    EXPECT_FALSE(isInProcess(file)) << part;
    EXPECT_EQ(PluginManager::get().entries().back().state, PluginManager::Refused);
  }
  EXPECT_CONTAINS(refusal(m_folder / "absent.so"), "No such file");
  EXPECT_CONTAINS(refusal(m_folder.path()), "it is no file");
}

TEST_F(PluginManagerTest, RefusesPluginsThatCanNotRunAndLeavesNothingBehind) {
  for (const auto& [mode, message] : {std::pair("dependency", "needs Test.Absent, which is not loaded"),
                                      {"fail", "init() of the plugin Test.Plugin failed with 7"},
                                      {"throw", "init() of the plugin Test.Plugin failed: no memory for the test"}}) {
    const Tests::EnvironmentVariable misbehave("TEST_PLUGIN", mode);
    EXPECT_CONTAINS(refusal(kPlugin), message);
    EXPECT_FALSE(isActive());
  }
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
  {
    const Tests::EnvironmentVariable path("KELVARIS_PLUGIN_PATH",
                                          m_folder.path().string() + "::/nowhere/libAbsentPlugin.so");
    const Tests::ExpectedLog log;
    EXPECT_EQ(PluginManager::get().loadAll(), 1);
    EXPECT_EQ(log.messages().size(), 2u);
    EXPECT_TRUE(log.contains("libBrokenPlugin.so\" is not a plugin"));
    EXPECT_TRUE(log.contains("libAbsentPlugin.so\" can't be read"));
  }
  const auto places = PluginManager::searchPath();
  const fs::path libraries = fs::canonical("/proc/self/exe").parent_path().parent_path() / "lib";
  EXPECT_NE(std::find(places.begin(), places.end(), libraries), places.end());
}

} // namespace
} // namespace Kelvaris
