// What all algorithms of the library have in common, seen from the host: one line an algorithm.

#include "Core/Progress.h"
#ifdef KELVARIS_HAVE_GL
#include "GL/RequireGL.h"
#endif
#include "Lib/FactoryRegistry.h"
#include "Lib/PluginManager.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "plugin/PlaneWaves.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace Kelvaris {
namespace {

constexpr int kImages = 3;
constexpr int kSpoilt = 1;

struct Contract {
  const char* id;
  Data::Kind streamKind;              ///< of a stream that it accepts
  void (*addImage)(SharedImageSet&);  ///< one that it processes, with the components that this takes
  void (*addSpoilt)(SharedImageSet&); ///< one that it refuses
  const char* error;                  ///< the last message of a run over three images, the second spoilt
  bool keepsSetState;
  const char* parameters;  ///< with their attributes, in order
  bool hasProgress = true; ///< and can be cancelled
  bool carriesTimestamps = true;
};

std::shared_ptr<SharedImage> filled(int pixelType, int width, int height, int channels, int slices = 1) {
  auto pixels = MemImage::create(ImageDescriptor(pixelType, width, height, slices, channels));
  std::memset(pixels->data(), 1, pixels->byteSize());
  return std::make_shared<SharedImage>(std::shared_ptr<Image>(std::move(pixels)));
}

/// A recording with the acquisition that describes it.
template <int pixelType> void addChannelData(SharedImageSet& images) {
  images.elementwiseComponents().components(images.size()).add(Tests::planeWaves());
  images.add(filled(pixelType, 16, 200, 1, 2));
}

template <int channels> void addIq(SharedImageSet& images) {
  images.add(filled(PixelInt16, 4, 3, channels));
}

const Contract kContracts[] = {
    {"USImgFormation.Beamforming", Data::VolumeStreamKind, addChannelData<PixelInt16>, addChannelData<PixelDouble>,
     "4 BeamformingAlgorithm: Error while beamforming image 1 of 3", true,
     "fNumber=1 max:4 min:0.1 step:0.1\n"
     "coherentCompounding=true\n"
     "outputSize=512 512\n"
     "outputValueScaling=1 max:10 min:0 step:0.01\n"
     "beamformerType=0 values:Unweighted Das, Hamming Das, Tukey Das, Debug: Aperture Size, Debug: Aperture Start, "
     "Debug: ApertureEnd\n"},
    {"USImgFormation.ChannelDataFilter", Data::VolumeStreamKind, addChannelData<PixelInt16>,
     [](SharedImageSet& images) { images.add(filled(PixelInt16, 16, 200, 1, 2)); },
     "4 ChannelDataFilterAlgorithm: Error while filtering image 1 of 3", true,
     "filterType=2 values:Lowpass,Highpass,Bandpass\n"
     "cutoffFrequencyLower=1.25 decimals:3 max:50 min:0.01 suffix:MHz\n"
     "cutoffFrequencyUpper=8.75 decimals:3 max:50 min:0.01 suffix:MHz\n"
     "filterLength=51\n",
     false},
    {"USImgFormation.ChannelDataRemapping", Data::VolumeStreamKind, addChannelData<PixelInt16>,
     addChannelData<PixelDouble>, "4 ChannelDataRemappingAlgorithm: Error while filtering image 1 of 3", false, "",
     false, false},
    {"USImgFormation.IqDemodulation", Data::VolumeStreamKind, addChannelData<PixelInt16>,
     [](SharedImageSet& images) {
       images.components().add(Tests::planeWaves()); // that of the set as a whole doesn't count
       images.add(filled(PixelInt16, 16, 200, 1));
     },
     "4 IqDemodulationAlgorithm: Error while filtering image 1of3", true,
     "samplingFrequency= decimals:3 max:200 min:0.01 suffix:MHz\n"
     "demodulationFrequency= decimals:3 max:50 min:0.01 suffix:MHz\n"
     "decimationFactor=1 max:20 min:1\n"},
    {"USImgFormation.EnvelopeDetection", Data::ImageStreamKind, addIq<2>, addIq<5>,
     "4 EnvelopeDetectionAlgorithm: Error while filtering image 1of3", false,
     "samplingFrequency=100 decimals:3 max:200 min:0.01 suffix:MHz\n"
     "demodulationFrequency=3.5 decimals:3 max:50 min:0.01 suffix:MHz\n"
     "decimationFactor=1 max:20 min:1\n"
     "logCompression=true\n"
     "dynamicRange=50 decimals:1 max:100 min:5 suffix:dB\n"
     "referenceAmplitude=1\n"
     "normalizeEnvelope=true\n"},
    {"USImgFormation.LogCompression", Data::ImageStreamKind, addIq<2>, addIq<5>,
     "4 LogCompressionAlgorithm: Error while filtering image 1of3", false,
     "dynamicRange=50 decimals:1 max:100 min:5 suffix:dB\n"
     "referenceAmplitude=1\n"
     "normalizeEnvelope=true\n"},
};

class AlgorithmContract : public ::testing::TestWithParam<Contract> {
protected:
  static void SetUpTestSuite() { PluginManager::get().load(PLUGIN_FILE); }

  AlgorithmContract() {
    images.setModality(Data::Ultrasound);
    images.properties().setParam("patient", std::string("phantom"));
    for (int i = 0; i < kImages; ++i) {
      GetParam().addImage(images);
      images.setTimestamp(10.0 + i, i);
    }
    descriptor = FactoryRegistry::get().algorithmDescriptor(GetParam().id, false);
  }

  std::unique_ptr<Algorithm> create() { return descriptor ? descriptor->create({&images}) : nullptr; }

  SharedImageSet images;
  std::optional<AlgorithmFactory::Descriptor> descriptor;
};

TEST_P(AlgorithmContract, TakesOneSetAndGivesOneImageForEachOnceOnly) {
  ASSERT_TRUE(descriptor);
  EXPECT_FALSE(descriptor->isCompatible({}));
  EXPECT_FALSE(descriptor->isCompatible({&images, &images}));
  const auto algorithm = create();
  ASSERT_NE(algorithm, nullptr);
  EXPECT_EQ(algorithm->factoryInfo().id, GetParam().id);
  EXPECT_FALSE(algorithm->survivesDataDeletion(&images));
  EXPECT_TRUE(algorithm->takeOutput().empty());
  for (const int size : {kImages, kImages, 0}) {
    if (size == 0) images.removeImages();
    algorithm->compute();
    ASSERT_EQ(algorithm->status(), Algorithm::Success);
    const auto output = algorithm->takeOutput().extract<SharedImageSet>();
    ASSERT_NE(output, nullptr);
    ASSERT_EQ(output->size(), size);
    EXPECT_EQ(output->modality(), Data::Ultrasound);
    EXPECT_EQ(size > 0 ? output->timestamp(2) : 0.0, size > 0 && GetParam().carriesTimestamps ? 12.0 : 0.0);
    EXPECT_EQ(output->properties().hasParam("patient"), GetParam().keepsSetState);
    EXPECT_TRUE(algorithm->takeOutput().empty());
  }
}

TEST_P(AlgorithmContract, AFailedOrCanceledRunLeavesNoOutput) {
  const auto algorithm = create();
  ASSERT_NE(algorithm, nullptr);
  Progress progress;
  std::string text;
  progress.onStep = [&](const ProgressTask& task) {
    text = task.text();
    EXPECT_EQ(task.steps(), kImages);
    if (task.step() == 1) progress.cancel(); // between two images
  };
  algorithm->setProgress(&progress);
  algorithm->compute();
  EXPECT_EQ(text, GetParam().hasProgress ? descriptor->displayName() : "");
  EXPECT_EQ(algorithm->status(), GetParam().hasProgress ? Algorithm::Canceled : Algorithm::Success);

  algorithm->setProgress(nullptr);
  images.removeImages();
  for (int i = 0; i < kImages; ++i)
    (i == kSpoilt ? GetParam().addSpoilt : GetParam().addImage)(images);
  Tests::ExpectedLog log;
  algorithm->compute();
  EXPECT_EQ(algorithm->status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm->takeOutput().empty());
  EXPECT_TRUE(log.contains(GetParam().error));
}

TEST_P(AlgorithmContract, AStreamGivesAnExecutorThatFindsItByName) {
  ImageStream stream("probe"), other("other");
  stream.setKind(GetParam().streamKind);
  other.setKind(Data::OtherStreamKind);
  EXPECT_FALSE(descriptor->isCompatible({&other}));
  const auto algorithm = descriptor->create({&stream});
  auto* const executor = dynamic_cast<StreamAlgorithmExecutor*>(algorithm.get());
  ASSERT_NE(executor, nullptr);
  EXPECT_EQ(executor->streamAlgorithmName(), descriptor->displayName());
  EXPECT_FALSE(executor->autoStart);

  executor->compute();
  int results = 0;
  const auto connection = executor->stream()->dataSignal.connect([&](const std::shared_ptr<const StreamData>& data) {
    results += dynamic_cast<const ImageStreamData&>(*data).images()->size();
  });
  for (int i = 0; i < 2; ++i)
    stream.dataSignal.emitSignal(std::make_shared<ImageStreamData>(std::shared_ptr<SharedImageSet>(images.clone(4))));
  EXPECT_EQ(results, 2 * kImages);
}

TEST_P(AlgorithmContract, HasItsParametersAndNoFormInAProcessWithoutAnApplication) {
  const auto algorithm = create();
  ASSERT_NE(algorithm, nullptr);
  std::string found;
  for (const ParameterBase* parameter : algorithm->parameters()) {
    found += parameter->name() + "=" + parameter->text();
    for (const auto& [key, value] : parameter->attributes())
      found += " " + key + ":" + value;
    found += "\n";
  }
  EXPECT_EQ(found, GetParam().parameters);

#ifdef KELVARIS_HAVE_GUI
  EXPECT_THROW(FactoryRegistry::get().createAlgorithmController(algorithm.get()), std::runtime_error)
      << "this process has no QApplication";
#else
  EXPECT_EQ(FactoryRegistry::get().createAlgorithmController(algorithm.get()), nullptr);
#endif
}

TEST(AlgorithmMenu, ListsTheAlgorithmsInOrder) {
  PluginManager::get().load(PLUGIN_FILE);
  const std::vector<std::string> expected = {
#ifdef KELVARIS_HAVE_GL
      "USImgFormation.CreateStreamIoSimulatedChannelData|IO;Streaming;Simulated Ultrasound Channel Data|0",
#endif
      "USImgFormation.ChannelDataFilter|Ultrasound;Filter Channel Data|0",
      "USImgFormation.ChannelDataRemapping|Ultrasound;Remap Channel Data|0",
      "USImgFormation.EnvelopeDetection|Ultrasound;Envelope Detection|0",
      "USImgFormation.LogCompression|Ultrasound;Log Compression|0",
      "USImgFormation.IqDemodulation|Ultrasound;IQ Demodulation|0",
      "USImgFormation.Beamforming|Ultrasound;Beamforming|0",
#ifdef KELVARIS_HAVE_GL
      "USImgFormation.ScanConversionUltrafastImaging|Ultrasound;Advanced;Scan-conversion for Ultrafast Imaging|2",
#endif
      "USImgFormation.StreamScanConversion|Ultrasound;Advanced;Advanced Scan-conversion|2",
#ifdef KELVARIS_HAVE_GL
      "USImgFormation.SingleImageStreamAlgorithmExecutor|Ultrasound;Advanced;Execute Stream Algorithm|0",
#endif
  };
  std::vector<std::string> found;
  for (const AlgorithmFactory::Descriptor& d : FactoryRegistry::get().algorithmDescriptors())
    if (d.id.starts_with("USImgFormation."))
      found.push_back(d.id + "|" + d.category + "|" + std::to_string(d.attributes));
  EXPECT_EQ(found, expected);
}

#ifdef KELVARIS_HAVE_GL
TEST(AlgorithmMenu, BothEntriesOfScanConversionMakeExecutorsThatFindIt) {
  PluginManager::get().load(PLUGIN_FILE);
  const std::string conversion = "USImgFormation.ScanConversionUltrafastImaging";
  ImageStream stream("probe"); // of any kind
  stream.setKind(Data::OtherStreamKind);
  for (const std::string& id : {conversion, std::string("USImgFormation.StreamScanConversion")}) {
    const auto made = FactoryRegistry::get().algorithmDescriptor(id, false)->create({&stream});
    const auto& executor = dynamic_cast<const StreamAlgorithmExecutor&>(*made);
    EXPECT_TRUE(FactoryRegistry::get().algorithmDescriptor(conversion, false)->isNamed(executor.streamAlgorithmName()));
  }
}

TEST(SimulatedStream, IsMadeFromNothingAndRunsAtOnce) {
  PluginManager::get().load(PLUGIN_FILE);
  const auto descriptor =
      FactoryRegistry::get().algorithmDescriptor("USImgFormation.CreateStreamIoSimulatedChannelData", false);
  SharedImageSet images;
  EXPECT_FALSE(descriptor->isCompatible({&images}));
  const auto algorithm = descriptor->create({});
  ASSERT_NE(algorithm, nullptr);
  KELVARIS_REQUIRE_GL();
  Properties settings;
  settings.setParam("useSIMUS", false);
  Properties& sequence = settings.subProperties("sequence");
  Tests::planeWaves()->configuration(&sequence.addSubProperties("frameAcquisitions"));
  for (const int event : {0, 1})
    sequence.addSubProperties("eventOrder").setParam("eventIndex", event);
  sequence.setParam("interEventDelays", std::vector<double>(2, std::nan("")));
  algorithm->configure(&settings);
  algorithm->compute();
  const auto stream = algorithm->takeOutput().extract<ImageStream>();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->state(), Stream::State::Running);
}
#endif

TEST(PluginLife, TheLibraryLeavesTheProcessAfterItHasWorked) {
  for (int round = 0; round < 3; ++round) {
    PluginManager::get().load(PLUGIN_FILE);
    {
      SharedImageSet images;
      images.setModality(Data::Ultrasound);
      addChannelData<PixelFloat>(images);
      const auto algorithm =
          FactoryRegistry::get().algorithmDescriptor("USImgFormation.Beamforming", false)->create({&images});
      algorithm->compute();
      EXPECT_EQ(algorithm->status(), Algorithm::Success);
    }
    EXPECT_NO_THROW(PluginManager::get().unload("Kelvaris.USImgFormation"));
  }
}

INSTANTIATE_TEST_SUITE_P(Algorithms, AlgorithmContract, ::testing::ValuesIn(kContracts), [](const auto& contract) {
  const std::string id = contract.param.id;
  return id.substr(id.find('.') + 1);
});

} // namespace
} // namespace Kelvaris
