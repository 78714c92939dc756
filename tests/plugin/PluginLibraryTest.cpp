// The library as a host meets it: from outside, through its file and its three exports.

#include "Core/Resource.h"
#include "Lib/DataComponentFactory.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/PluginManager.h"
#include "support/ErrorOf.h"

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <regex>

namespace Kelvaris {
namespace {

const std::string kLibrary = PLUGIN_FILE;

/// What a command prints.
std::string outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
  std::string text;
  std::array<char, 4096> buffer;
  for (std::size_t n = 0; pipe && (n = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0;)
    text.append(buffer.data(), n);
  return text;
}

bool isInProcess() {
  void* handle = dlopen(kLibrary.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle) dlclose(handle);
  return handle != nullptr;
}

TEST(PluginLibraryTest, ExportsThreeSymbolsASonameAndARunPath) {
  const std::string symbols = outputOf("nm -D --defined-only '" + kLibrary + "'");
  for (const char* line : {" T kelvarisCreatePlugin\n", " T kelvarisPluginId\n", " [DR] kelvarisPluginDescriptor\n"})
    EXPECT_TRUE(std::regex_search(symbols, std::regex(line))) << line;
  EXPECT_EQ(symbols.find(" u "), std::string::npos) << "unique symbols would pin the library in memory";
  const std::string dynamic = outputOf("readelf -d '" + kLibrary + "'");
  EXPECT_CONTAINS(dynamic, "soname: [libKelvarisUSImgFormationPlugin.so]");
  EXPECT_CONTAINS(dynamic, "path: [$ORIGIN:$ORIGIN/..:$ORIGIN/../..]");
}

TEST(PluginLibraryTest, NeedsNoDriverNoDisplayAndNoPython) {
  const std::string libraries = outputOf("ldd '" + kLibrary + "'");
  EXPECT_CONTAINS(libraries, "libKelvarisCore.so");
  EXPECT_EQ(libraries.find("not found"), std::string::npos) << libraries;
  for (const char* absent : {"libcuda.so", "libpython"})
    EXPECT_EQ(libraries.find(absent), std::string::npos) << absent;
#ifndef KELVARIS_HAVE_GUI // Qt brings these, and gets on without a display
  for (const char* absent : {"libGL.so", "libEGL.so", "libOpenGL.so", "libX11"})
    EXPECT_EQ(libraries.find(absent), std::string::npos) << absent;
#endif
}

TEST(PluginLibraryTest, TheLoaderGuardIsTheLastStaticToBeBuilt) {
  // The last entry of the table of initialisers is a relocation; its addend is the address of a function.
  std::smatch section, entry, function;
  const std::string sections = outputOf("readelf -SW '" + kLibrary + "'");
  ASSERT_TRUE(std::regex_search(sections, section,
                                std::regex("\\.init_array +INIT_ARRAY +([0-9a-f]+) +[0-9a-f]+ +([0-9a-f]+)")));
  std::ostringstream last;
  last << std::hex << std::stoull(section[1], nullptr, 16) + std::stoull(section[2], nullptr, 16) - 8;
  const std::string relocations = outputOf("readelf -rW '" + kLibrary + "'");
  ASSERT_TRUE(std::regex_search(relocations, entry,
                                std::regex("0*" + last.str() + " +[0-9a-f]+ R_X86_64_RELATIVE +([0-9a-f]+)")));
  const std::string symbols = outputOf("nm '" + kLibrary + "'");
  ASSERT_TRUE(std::regex_search(symbols, function, std::regex("0*" + entry[1].str() + " t (\\S+)")));
  EXPECT_EQ(function[1], "_GLOBAL__sub_I_USImgFormationPlugin.cpp");
}

TEST(PluginLibraryTest, TheDescriptorIsReadWithoutRunningCode) {
  EXPECT_EQ(PluginFile::read(kLibrary).descriptor,
            "__KELVARIS_PLUGIN_V2_MAGIC_STRING__|hostversion=4.5.0|buildflags=GLIBCXX_DEBUG:_GLIBCXX_DEBUG|"
            "pluginversion=");
  EXPECT_FALSE(isInProcess());
}

TEST(PluginLibraryTest, InitBringsInWhatTheLibraryHas) {
  PluginManager& manager = PluginManager::get();
  PluginBase& plugin = manager.load(kLibrary);
  EXPECT_EQ(plugin.description(),
            "Plugin for the acquisition, processing and representation of low level ultrasound data");
  EXPECT_EQ(plugin.dependencies(), (std::vector<std::string>{"Kelvaris.US", "Kelvaris.Stream"}));
  EXPECT_FALSE(plugin.author().empty());
  EXPECT_GT(plugin.version(), Utils::Version());
  EXPECT_EQ(manager.entries().back().id, "Kelvaris.USImgFormation");

  for (const auto& [stored, id] : {std::pair("ChannelDataLayout", "ChannelDataLayout"),
                                   {"FrameAcquisition", "FrameAcquisition"},
                                   {"PulseEchoEvent", "PulseEchoEvent"},
                                   {"Transducer", "Transducer"},
                                   {"BeamformingRois", "BeamformingRois"},
                                   {"PulseEchoSequence", "FrameAcquisition"},
                                   {"UltrafastBeamformingRois", "BeamformingRois"}}) {
    const auto component = DataComponentFactory::get().create(stored);
    EXPECT_EQ(component ? component->id() : "none", id) << stored;
  }

  const auto algorithms = [] { return FactoryRegistry::get().algorithmDescriptors().size(); };
  const std::size_t registered = algorithms();
  EXPECT_GT(registered, 0u);
  const auto shader = [] { return Resource::query("KelvarisUSImgFormationPlugin/SamplingPositionMap.comp"); };
  EXPECT_TRUE(shader());
  EXPECT_EQ(plugin.init(), 0) << "a second time";
  EXPECT_TRUE(shader());
  EXPECT_EQ(algorithms(), registered) << "the factories of the first time are gone";

  manager.unload("Kelvaris.USImgFormation");
  EXPECT_FALSE(isInProcess());
  EXPECT_FALSE(shader());
  EXPECT_EQ(DataComponentFactory::get().create("Transducer"), nullptr);
  EXPECT_EQ(algorithms(), 0u);
}

} // namespace
} // namespace Kelvaris
