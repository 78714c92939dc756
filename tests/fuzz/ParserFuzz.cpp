// Feeds mutated input to every parser of what comes from outside, and checks what a parser accepts: written again, it
// must read back the same. Crashes and undefined behaviour are the sanitizers' to find.
//   ParserFuzz [SEED [PARSER INPUTS]]   all parsers, or one of them with so many inputs
#include "fuzz/Finding.h"
#include "fuzz/Mutator.h"
#include "fuzz/RegisteredComponents.h"
#include "fuzz/SimulationCacheFuzz.h"

#include "Core/Log.h"
#include "Lib/Hdf5.h"
#include "Lib/KelvarisFile.h"
#include "Lib/MaskIO.h"
#include "US/FanMask.h"
#include "kelvaris/Step.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace Kelvaris::Tests {
namespace {

/// An input that takes longer hangs; the alarm then ends the program.
constexpr unsigned kSecondsPerInput = 20;

struct Parser {
  const char* name;
  std::vector<std::string> inputs;
  std::vector<std::string> words;
  int count;
  /// Parses; true if the input was accepted. Throws std::runtime_error or std::invalid_argument where it is refused,
  /// Finding where it doesn't survive being written.
  std::function<bool(const std::string&)> parse;
};

/// The words of a text, which `|` parts.
std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> result;
  for (std::string word; std::getline(stream, word, '|');)
    result.push_back(word);
  return result;
}

const std::vector<std::string> kXmlWords = words(
    "<param key=\"|</param>|<properties key=\"x\">|</properties>|<component id=\"|<step id=\"|nan|-inf|1e999|-|-1|;| |"
    "2147483648|99999999999999999999|0x10|&lt;|&#0;|&#xFFFFFFFF;|<![CDATA[|]]>|<!--|<?xml|"
    "<!DOCTYPE x [<!ENTITY a \"b\">]>|\xEF\xBB\xBF|\xFF\xFE");

Properties someProperties() {
  Properties p;
  p.setParam("pitch", 0.3);
  p.setParam("count", 128);
  p.setParam("name", "L7-4 <&> \"x\"");
  p.setParam("delays", std::vector<double>{0.0, 1.5e-6, -2.25, std::nan("")});
  for (int i = 0; i < 3; ++i) {
    Properties& event = p.addSubProperties("event");
    event.setParam("number", i);
    event.addSubProperties("transmit").setParam("apodization", std::vector<double>(16, 0.5));
  }
  return p;
}

/// Whether `parse` accepts the text. What it accepts must survive being written; as components keep what they
/// understand, it is the second form that has to last.
template <typename Parse, typename Write>
bool parseAndWrite(const std::string& text, const Parse& parse, const Write& write) {
  const auto parsed = parse(text);
  if (!parsed) return false;
  const std::string written = write(*parsed);
  const auto again = parse(written);
  if (!again || write(*again) != written) throw Finding("it doesn't survive being written");
  return true;
}

bool parseProperties(const std::string& xml) {
  const auto properties = PropertiesIO::fromXml(xml);
  if (properties && PropertiesIO::fromXml(PropertiesIO::toXml(*properties)) != properties)
    throw Finding("the properties don't survive being written");
  return properties.has_value();
}

bool parseComponents(const std::string& xml) {
  return parseAndWrite(xml, DataComponentsIO::fromXml, DataComponentsIO::toXml);
}

std::shared_ptr<const Mask> sectorMask(const ImageDescriptor& image) {
  US::FrameGeometrySector sector;
  sector.setDepth(40.0);
  sector.setOpeningAngle(30.0);
  sector.setImgDesc(image);
  return std::make_shared<US::FanMask>(sector);
}

bool parseMask(const std::string& xml) {
  const ImageDescriptor image(PixelUInt8, 5, 4);
  const auto parse = [&](const std::string& text) {
    const auto mask = MaskIO::fromXml(text, image);
    unsigned char valid[5];
    if (mask) mask->evaluate(TypedImage<unsigned char>(image), 0, 3, 0, 5, valid);
    return mask;
  };
  return parseAndWrite(xml, parse, MaskIO::toXml);
}

bool parseChain(const std::string& xml) {
  const auto steps = CommandLine::parseChain(xml, "fuzz");
  if (CommandLine::parseChain(CommandLine::chainToXml(steps), "fuzz") != steps)
    throw Finding("the chain doesn't survive being written");
  return true;
}

bool parseStep(const std::string& text) {
  CommandLine::parseStep(text);
  return true;
}

/// Loads, and saves what was loaded.
bool parseFile(const std::filesystem::path& path, const std::filesystem::path& copy) {
  const auto set = KelvarisFile::load(path);
  KelvarisFile::save(copy, *set);
  const auto again = KelvarisFile::load(copy);
  if (again->size() != set->size()) throw Finding("images got lost");
  for (int i = 0; i < set->size(); ++i)
    if (!sameBytes(*set->get(i).mem(), *again->get(i).mem())) throw Finding(fmt::format("image {} changed", i));
  return true;
}

/// The bytes of a small valid file. Old ones have no checksums, so that damage gets further into HDF5.
std::string fileBytes(const TemporaryFolder& folder, bool old) {
  SharedImageSet set;
  set.setModality(Data::Ultrasound);
  set.properties() = someProperties();
  for (const int type : {PixelUInt8, PixelFloat}) {
    std::shared_ptr<MemImage> pixels = MemImage::create(ImageDescriptor(type, 5, 4, 2));
    std::memset(pixels->data(), 1, pixels->byteSize());
    set.add(std::make_shared<SharedImage>(pixels));
  }
  // On the image without components: HDF5 1.10 copies no more than eight attributes with texts among them.
  set.shared(1)->setMask(sectorMask(set.get(1).descriptor()));
  auto component = std::make_unique<UnknownDataComponent>("Anything");
  const Properties contents = someProperties();
  component->configure(&contents);
  set.elementwiseComponents().components(0).add(std::move(component));
  KelvarisFile::save(folder / "seed.kvx", set);
  if (!old) return readFile(folder / "seed.kvx");

  const Hdf5::Handle source = Hdf5::openFile(folder / "seed.kvx");
  {
    const Hdf5::Handle target(H5Fcreate((folder / "old.kvx").c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT),
                              H5Fclose);
    H5Ocopy(source, "/images", target, "/images", H5P_DEFAULT, H5P_DEFAULT);
    for (const char* name : {"format", "properties"})
      Hdf5::writeText(target, name, Hdf5::readText(source, name));
    Hdf5::writeInteger(target, "version", 1);
  }
  return readFile(folder / "old.kvx");
}

void run(const Parser& parser, unsigned seed) {
  const auto begin = std::chrono::steady_clock::now();
  for (const std::string& input : parser.inputs)
    if (!parser.parse(input)) throw Finding(fmt::format("{}: a valid input was refused", parser.name));
  Mutator mutator(parser.inputs, parser.words, seed);
  int accepted = 0;
  for (int i = 0; i < parser.count; ++i) {
    const std::string input = mutator.next();
    // What crashes lies here afterwards.
    if (const char* trace = std::getenv("KELVARIS_FUZZ_TRACE")) writeFile(trace, input);
    alarm(kSecondsPerInput);
    try {
      accepted += parser.parse(input);
    } catch (const Finding& finding) {
      throw Finding(fmt::format("{}, input {}: {}\n{}", parser.name, i, finding.what(), input));
    } catch (const std::runtime_error&) {    // NOLINT(bugprone-empty-catch): refused, as it should be
    } catch (const std::invalid_argument&) { // NOLINT(bugprone-empty-catch): the same
    }
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  fmt::print("{:15} {:6} inputs, {:6} accepted, {:.1f} s\n", parser.name, parser.count, accepted, time.count());
  std::fflush(stdout);
}

int main(int argc, char** argv) {
  Log::setConsoleLevel(Log::Off);
  registerComponents();
  const TemporaryFolder folder;
  const auto seed = static_cast<unsigned>(argc > 1 ? std::atoi(argv[1]) : 1);
  const auto parseBytes = [&](const std::string& bytes) {
    writeFile(folder / "fuzz.kvx", bytes);
    return parseFile(folder / "fuzz.kvx", folder / "copy.kvx");
  };
  const auto fileWords = words("SNOD|TREE|HEAP|GCOL|OHDR|FRHP|FADB|BTHD");
  const SimulationCacheFuzz cache(folder);
  std::vector<Parser> parsers = {
      {"properties", {PropertiesIO::toXml(someProperties())}, kXmlWords, 40000, parseProperties},
      {"components", componentExamples(), kXmlWords, 40000, parseComponents},
      {"mask", {MaskIO::toXml(*sectorMask(ImageDescriptor(PixelUInt8, 5, 4)))}, kXmlWords, 20000, parseMask},
      {"chain",
       {CommandLine::chainToXml({{"IqDemodulation", {{"samplingFrequency", "6.6667e6"}}}, {"LogCompression", {}}})},
       kXmlWords,
       10000,
       parseChain},
      {"step",
       {"Beamforming:outputSize=[512,256],beamformerType=\"Hamming Das\",fNumber=1.5"},
       words(",|:|=|[|]|(|)|\"|'"),
       20000,
       parseStep},
      {"parametrization",
       {cache.parametrization},
       kXmlWords,
       5000,
       [&](const std::string& xml) { return cache.loads(xml, cache.result); }},
      {"simulation",
       {cache.result},
       fileWords,
       5000,
       [&](const std::string& bytes) { return cache.loads(cache.parametrization, bytes); }},
      {"kvx", {fileBytes(folder, false)}, fileWords, 4000, parseBytes},
#ifndef __SANITIZE_ADDRESS__
      // Without checksums HDF5 1.10 itself reads a few bytes beyond damaged structures, which the sanitizer would
      // report.
      {"kvx, old", {fileBytes(folder, true)}, fileWords, 4000, parseBytes},
#endif
  };
  if (argc > 3) {
    std::erase_if(parsers, [&](const Parser& parser) { return std::string(parser.name) != argv[2]; });
    for (Parser& parser : parsers)
      parser.count = std::atoi(argv[3]);
  }
  try {
    for (const Parser& parser : parsers)
      run(parser, seed);
  } catch (const std::exception& finding) {
    fmt::print(stderr, "ParserFuzz: {}\n", finding.what());
    return 1;
  }
  return 0;
}

} // namespace
} // namespace Kelvaris::Tests

/// HDF5 loses what it has read of a file that it then refuses.
extern "C" const char* __lsan_default_suppressions() { // NOLINT: the name that the leak sanitizer looks for
  return "leak:libhdf5";
}
extern "C" const char* __lsan_default_options() { // NOLINT: the same
  return "print_suppressions=0";
}

int main(int argc, char** argv) {
  return Kelvaris::Tests::main(argc, argv);
}
