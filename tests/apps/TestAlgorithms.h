#pragma once

#include "Core/Log.h"
#include "Core/Parameter.h"
#include "Lib/AlgorithmFactory.h"
#include "Lib/IntensityMask.h"
#include "Lib/SharedImageSet.h"
#include "support/Samples.h"

#include <csignal>
#include <stdexcept>

namespace Kelvaris::Tests {

/// What the algorithms below have seen, for tests in the same process.
struct Record {
  static Record& get() {
    static Record record;
    return record;
  }
  void see(const std::shared_ptr<const SharedImage>& image) {
    // The result of one step is the input of the next.
    if (std::none_of(images.begin(), images.end(), [&](const auto& seen) { return seen.lock() == image; }))
      images.push_back(image);
    mostAlive = std::max(mostAlive, std::count_if(images.begin(), images.end(), [](auto& i) { return !i.expired(); }));
  }
  int made = 0;
  std::vector<std::weak_ptr<const SharedImage>> images; ///< all that came in and went out
  std::ptrdiff_t mostAlive = 0;
};

/// On ultrasound images of floats, image by image: factor * sample + offset, or 8-bit levels with the invalid 0 for
/// NaN. Makes trouble at one of the images if told so. Sets the property "gained" of the set.
class GainAlgorithm : public Algorithm {
public:
  enum class Mode { Plain, HammingDas, DebugOther };
  enum class Trouble { None, Fail, Throw, Interrupt };

  explicit GainAlgorithm(const SharedImageSet* input) : m_input(input) {
    ++Record::get().made;
    mode.setAttribute("values", "Plain, Hamming Das, Debug: Other");
    offset.setAttribute("suffix", "dB");
    offset.setAttribute("min", "-5");
    offset.setAttribute("max", "5");
    count.setAttribute("suffix", "dB");
    count.setAttribute("min", "1");
    trouble.setAttribute("values", "None, Fail, Throw, Interrupt");
    for (ParameterBase* parameter : std::initializer_list<ParameterBase*>{&factor, &offset, &outputSize, &mode, &levels,
                                                                          &count, &label, &trouble, &at})
      registerParameter(parameter);
  }

  static bool createCompatible(const DataList& data, Algorithm** algorithm) {
    const auto sets = data.getImages(Data::UnknownKind, Data::Ultrasound);
    if (sets.size() != 1 || sets[0]->get(0).descriptor().pixelType() != PixelFloat) return false;
    if (algorithm) *algorithm = std::make_unique<GainAlgorithm>(sets[0]).release();
    return true;
  }

  void compute() override {
    m_status = Failure;
    m_output.reset();
    auto output = m_input->clone(3);
    output->properties().setParam("gained", true);
    for (int i = 0; i < m_input->size(); ++i) {
      Record::get().see(m_input->shared(i));
      const std::shared_ptr<SharedImage> image = process(m_input->get(i));
      if (!image) return Log::error("GainAlgorithm", "No image came out");
      Record::get().see(image);
      output->add(image, m_input->timestamp(i));
      output->elementwiseComponents().add(m_input->elementwiseComponents().components(i), i);
    }
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
  Parameter<Eigen::Vector2i> outputSize{"outputSize", Eigen::Vector2i(512, 512)};
  Parameter<Mode> mode{"mode", Mode::Plain};
  Parameter<bool> levels{"levels", false};
  Parameter<int> count{"count", 3};
  Parameter<std::string> label{"label", ""};
  Parameter<Trouble> trouble{"trouble", Trouble::None};
  Parameter<int> at{"at", 0};

private:
  std::shared_ptr<SharedImage> process(const SharedImage& image) {
    if (m_seen++ == at) {
      if (trouble == Trouble::Fail) return nullptr;
      if (trouble == Trouble::Throw) throw std::runtime_error("the device is gone");
      if (trouble == Trouble::Interrupt) std::raise(SIGINT); // as a user's Ctrl-C in the middle of the work
    }
    ImageDescriptor descriptor = image.descriptor();
    if (levels) descriptor.setPixelType(PixelUInt8);
    const auto samples = image.mem();
    auto result = std::make_shared<SharedImage>(imageOf(descriptor, [&](int x, int y, int z, int channel) {
      const double value = factor * samples->valueAsDouble(x, y, z, channel) + offset.value().value_or(0.0);
      return levels ? (std::isnan(value) ? 0.0 : std::clamp(value, 1.0, 255.0)) : value;
    }));
    if (levels) result->setMask(std::make_shared<IntensityMask>(PixelUInt8, 0.0));
    return result;
  }

  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  int m_seen = 0;
};

/// Has "Test.Gain", and "Test.Levels" that makes levels.
struct TestAlgorithmFactory : AlgorithmFactory {
  TestAlgorithmFactory() : AlgorithmFactory("Test") {
    Properties makeLevels;
    makeLevels.setParam("levels", true);
    registerAlgorithm<GainAlgorithm>("Gain", "Test;Gain");
    registerAlgorithm<GainAlgorithm>("Levels", "Test;Make Levels", 0, makeLevels);
  }
};

/// A float image whose samples are `value`.
inline std::shared_ptr<SharedImage> floatImage(int width, int height, float value) {
  auto image = std::make_shared<SharedImage>(
      imageOf(ImageDescriptor(PixelFloat, width, height), [&](int, int, int, int) { return value; }));
  image->setModality(Data::Ultrasound);
  return image;
}

} // namespace Kelvaris::Tests
