// From the stream through the embedded interpreter to the simulator itself.
#include "SimulatedStreamCases.h"
#include "support/EnvironmentVariable.h"
#include "support/Samples.h"
#include "support/TemporaryFolder.h"

#include "Lib/MemImage.h"
#include "Lib/PluginManager.h"
#include "Lib/PointCloud.h"
#include "Python/PythonPlugin.h"
#include "US/FrameGeometry.h"
#include "US/FrameGeometryMetadata.h"
#include "beamforming/BeamformingAlgorithm.h"
#include "processing/IqDemodulationAlgorithm.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

namespace Kelvaris::US {
namespace {

namespace fs = std::filesystem;
using Kelvaris::Tests::AcquisitionSequence;
using Kelvaris::Tests::EnvironmentVariable;
using Kelvaris::Tests::nextImages;
using Kelvaris::Tests::shortFrame;
using Kelvaris::Tests::TemporaryFolder;

const char* const kWaves[] = {"focused", "plane waves", "diverging waves"};

/// Direct calls of the toolbox for 4 MHz, 2 cycles, 20 MHz and 1540 m/s, and one point (mm) in each event. `depth` (m)
/// is that of the array's centre.
const char* const kDirect = R"(
import kelvaris, numpy, pymust

def direct(delays, points, pitch, radius, depth):
    events = []
    for row, point in zip(delays[0].array()[0, :, :, 0], points.points):
        p = pymust.utils.Param()
        p.fc, p.TXnow, p.fs, p.c = 4e6, 2.0, 2e7, 1540.0
        p.pitch, p.width, p.radius, p.Nelements = pitch, pitch, radius, len(row)
        x, y = 1e-3 * point[:1], 1e-3 * point[1:2]
        events.append(pymust.simus(x, y + depth, numpy.ones(1), numpy.array([row]), p)[0])
    rows = max(map(len, events))
    padded = [numpy.pad(event, ((0, rows - len(event)), (0, 0))) for event in events]
    return kelvaris.SharedImageSet([numpy.ascontiguousarray(padded, dtype=numpy.float32)], volumetric=True)
)";

/// The interpreter with the simulator; skipped where there is none.
class SimusToolbox : public Kelvaris::Tests::SimulatedStream {
protected:
  void SetUp() override {
    SimulatedStream::SetUp();
    if (IsSkipped()) return;
    auto& plugin = dynamic_cast<PythonPlugin&>(PluginManager::get().load(PYTHON_PLUGIN));
    python = fs::exists(fs::path(PYTHON_FOLDER) / "bin/python") ? plugin.interpreter() : nullptr;
    if (!python) GTEST_SKIP() << "no SIMUS simulator for the tests: there is no Python in " << PYTHON_FOLDER;
    python->execute(kDirect);
  }
  /// Echoes alone, of amplitude 1.
  static std::unique_ptr<SimulatedChannelDataStream> echoes() {
    auto stream = std::make_unique<SimulatedChannelDataStream>();
    stream->setTransmitAmplitude(0.0);
    stream->setNoiseAmplitude(0.0);
    stream->setEchoAmplitude(1.0);
    stream->setPixelType(PixelFloat);
    return stream;
  }
  std::shared_ptr<MemImage> direct(const FrameAcquisition& frame, const std::vector<Eigen::Vector3d>& points) {
    const auto elements = frame.transducer().elementPositions();
    auto delays =
        std::make_shared<TypedImage<double>>(frame.transducer().numElements(), static_cast<int>(frame.events().size()));
    std::fill_n(delays->pointer(), delays->size(), std::numeric_limits<double>::quiet_NaN());
    for (std::size_t e = 0; e < frame.events().size(); ++e) {
      int element = frame.events()[e].transmit.apertureFirst;
      for (const double delay : frame.events()[e].transmit.calculateDelays(frame.transducer()))
        delays->setValue(delay, element++, static_cast<int>(e));
    }
    auto set = std::make_shared<SharedImageSet>();
    set->add(std::make_shared<SharedImage>(delays));
    const std::string call = fmt::format(
        "direct(delays, points, {}, {}, {})", 1e-3 * (elements[1] - elements[0]).norm(),
        frame.transducer().isConvex() ? fmt::to_string(1e-3 * *frame.transducer().radiusCurvature()) : "numpy.inf",
        -1e-3 * elements.front().y());
    const auto results = python->evaluate(call, {{"delays", set}, {"points", std::make_shared<PointCloud>(points)}});
    return dynamic_cast<SharedImageSet&>(*results.at(0)).get(0).mem();
  }

  const TemporaryFolder temporary;
  const EnvironmentVariable folder{"TMPDIR", temporary.path().string()};
  const EnvironmentVariable home{"KELVARIS_PYTHON_HOME", PYTHON_FOLDER};
  PythonInterpreter* python = nullptr;
};

TEST_F(SimusToolbox, GivesTheStreamWhatTheToolboxGives) {
  const auto stream = echoes();
  stream->setPhantomOrigin({0.5, 6.0, 0.0});
  stream->setInterEventPhantomMotion({-300.0, 900.0, 0.0});
  for (const auto& array : {Kelvaris::Tests::kStraight, Kelvaris::Tests::kCurved})
    for (int wave = 0; wave < 3; ++wave) {
      SCOPED_TRACE(fmt::format("{}, {}", array.isConvex() ? "convex" : "linear", kWaves[wave]));
      const FrameAcquisition frame = shortFrame(wave, 11, 16, array);
      stream->setAcquisitionSequence(
          AcquisitionSequence({frame}, {1}, {AcquisitionSequence::EnsembleMode::PerFrame}, {1e-3}));
      ASSERT_TRUE(stream->useSIMUS());
      const auto image = nextImages(*stream).at(0);
      const auto expected = direct(frame, {{0.5, 6.0, 0.0}, {0.2, 6.9, 0.0}, {-0.1, 7.8, 0.0}});
      double peak = 0.0;
      const double error = Kelvaris::Tests::worstError(*image, [&](int x, int y, int z, int) {
        const double value = y < expected->height() ? expected->valueAsDouble(x, y, z, 0) : 0.0;
        peak = std::max(peak, std::abs(value));
        return value;
      });
      EXPECT_GT(peak, 1.0);
      EXPECT_LT(error, 1e-4 * peak);
    }
}

TEST_F(SimusToolbox, PointsAreBeamformedWhereTheyLie) {
  constexpr double wavelength = 1.54e6 / 4e6; // mm
  const Eigen::Vector3d point(1.5, 11.0, 0.0);
  const auto stream = echoes();
  stream->setPhantomOrigin(point);
  for (const auto& array : {Transducer::createLinear(48, 0.2), Transducer::createConvex(48, 0.2, 20.0)})
    for (int wave = 0; wave < 3; ++wave) {
      SCOPED_TRACE(fmt::format("{}, {}", array.isConvex() ? "convex" : "linear", kWaves[wave]));
      FrameParameters parameters = *shortFrame(wave).frameParameters();
      parameters.endDepth = 16.0;
      parameters.maxTransmitAperture = wave == 0 ? 24 : 48; // beams have apertures that walk along the array
      parameters.maxReceiveAperture = wave == 0 ? 24 : 48;
      parameters.focused = {.focalDepth = 11.0, .steeringAngle = 0.0, .numberFocusedBeamsTotal = 25};
      stream->setAcquisitionSequence(AcquisitionSequence({FrameAcquisition(array, parameters)}));
      ASSERT_TRUE(stream->useSIMUS());
      const auto acquisition = stream->getNextAcquisition();
      IqDemodulationAlgorithm demodulation(nullptr);
      BeamformingAlgorithm beamforming(nullptr);
      beamforming.outputSize = Eigen::Vector2i(200, 400);
      const auto [iq, iqComponents] = demodulation.processImage(*acquisition.at(0).first, acquisition.at(0).second);
      const auto [lines, components] = beamforming.processImage(*iq, iqComponents);
      const FrameGeometry& geometry = *components.get<FrameGeometryMetadata>()->frameGeometry();
      const auto pixels = lines->mem();
      Eigen::Vector2d brightest;
      double most = -1.0;
      Kelvaris::Tests::forEachSample(
          ImageDescriptor(PixelFloat, pixels->width(), pixels->height()), [&](int x, int y, int, int) {
            const double amplitude = std::hypot(pixels->valueAsDouble(x, y, 0, 0), pixels->valueAsDouble(x, y, 0, 1));
            if (!(amplitude > most)) return;
            most = amplitude;
            brightest = geometry.convertPoint({(x + 0.5) / pixels->width(), (y + 0.5) / pixels->height()},
                                              FrameGeometry::NormalizedToPhysical);
          });
      EXPECT_NEAR(brightest.x(), point.x(), wavelength);
      EXPECT_NEAR(brightest.y(), point.y(), 0.25 * wavelength);
    }
}

} // namespace
} // namespace Kelvaris::US
