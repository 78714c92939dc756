#pragma once

#include "Core/Parameter.h"
#include "Lib/AlgorithmFactory.h"
#include "Lib/SharedImageSet.h"

#include <memory>
#include <vector>

namespace Kelvaris::Tests {

/// What the algorithms below have seen, for tests in the same process.
struct Record {
  static Record& get();
  int made = 0;
  std::vector<std::weak_ptr<const SharedImage>> images; ///< all that came in and went out
  std::size_t mostAlive = 0;
  void see(const std::shared_ptr<const SharedImage>& image);
};

/// On ultrasound images of floats, image by image: factor * sample + offset, or 8-bit levels with the invalid 0 for
/// NaN. Makes trouble at one of the images if told so. Sets the property "gained" of the set.
class GainAlgorithm : public Algorithm {
public:
  enum class Mode { Plain, HammingDas, DebugOther };
  enum class Trouble { None, Fail, Throw, Interrupt };
  explicit GainAlgorithm(const SharedImageSet* input);
  static bool createCompatible(const DataList& data, Algorithm** algorithm);
  void compute() override;
  OwningDataList takeOutput() override;

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
  std::shared_ptr<SharedImage> process(const SharedImage& image);

  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
  int m_seen = 0;
};

/// Has "Test.Gain", and "Test.Levels" that makes levels.
class TestAlgorithmFactory : public AlgorithmFactory {
public:
  TestAlgorithmFactory();
};

/// A float image whose samples are `value`.
std::shared_ptr<SharedImage> floatImage(int width, int height, float value);

} // namespace Kelvaris::Tests
