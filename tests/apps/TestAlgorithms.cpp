#include "apps/TestAlgorithms.h"

#include "Core/Log.h"
#include "Lib/IntensityMask.h"
#include "support/Samples.h"

#include <csignal>
#include <stdexcept>

namespace Kelvaris::Tests {

Record& Record::get() {
  static Record record;
  return record;
}

void Record::see(const std::shared_ptr<const SharedImage>& image) {
  // The result of one step is the input of the next.
  if (std::none_of(images.begin(), images.end(), [&](const auto& seen) { return seen.lock() == image; }))
    images.push_back(image);
  const auto alive = std::count_if(images.begin(), images.end(), [](const auto& seen) { return !seen.expired(); });
  mostAlive = std::max(mostAlive, static_cast<std::size_t>(alive));
}

GainAlgorithm::GainAlgorithm(const SharedImageSet* input) : m_input(input) {
  ++Record::get().made;
  mode.setAttribute("values", "Plain, Hamming Das, Debug: Other");
  for (ParameterBase* parameter : {static_cast<ParameterBase*>(&offset), static_cast<ParameterBase*>(&count)})
    parameter->setAttribute("suffix", "dB");
  offset.setAttribute("min", "-5");
  offset.setAttribute("max", "5");
  count.setAttribute("min", "1");
  trouble.setAttribute("values", "None, Fail, Throw, Interrupt");
  for (ParameterBase* parameter : std::initializer_list<ParameterBase*>{&factor, &offset, &outputSize, &mode, &levels,
                                                                        &count, &label, &trouble, &at})
    registerParameter(parameter);
}

bool GainAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  const auto sets = data.getImages(Data::UnknownKind, Data::Ultrasound);
  if (sets.size() != 1 || sets[0]->get(0).descriptor().pixelType() != PixelFloat) return false;
  if (algorithm) *algorithm = std::make_unique<GainAlgorithm>(sets[0]).release();
  return true;
}

void GainAlgorithm::compute() {
  m_status = Failure;
  m_output = m_input->clone(3);
  m_output->properties().setParam("gained", true);
  for (int i = 0; i < m_input->size(); ++i) {
    Record::get().see(m_input->shared(i));
    const std::shared_ptr<SharedImage> image = process(m_input->get(i));
    if (!image) {
      Log::error("GainAlgorithm", "No image came out");
      m_output.reset();
      return;
    }
    Record::get().see(image);
    m_output->add(image, m_input->timestamp(i));
    m_output->elementwiseComponents().add(m_input->elementwiseComponents().components(i), i);
  }
  m_status = Success;
}

OwningDataList GainAlgorithm::takeOutput() {
  OwningDataList list;
  if (m_output) list.add(std::move(m_output));
  return list;
}

std::shared_ptr<SharedImage> GainAlgorithm::process(const SharedImage& image) {
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

TestAlgorithmFactory::TestAlgorithmFactory() : AlgorithmFactory("Test") {
  Properties makeLevels;
  makeLevels.setParam("levels", true);
  registerAlgorithm<GainAlgorithm>("Gain", "Test;Gain");
  registerAlgorithm<GainAlgorithm>("Levels", "Test;Make Levels", 0, makeLevels);
}

std::shared_ptr<SharedImage> floatImage(int width, int height, float value) {
  auto image = std::make_shared<SharedImage>(
      imageOf(ImageDescriptor(PixelFloat, width, height), [&](int, int, int, int) { return value; }));
  image->setModality(Data::Ultrasound);
  return image;
}

} // namespace Kelvaris::Tests
