#include "apps/TestAlgorithms.h"

#include "Core/Log.h"
#include "Lib/IntensityMask.h"

#include <algorithm>
#include <cmath>
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

FloatAlgorithm::FloatAlgorithm(const SharedImageSet* input) : m_input(input) {
  ++Record::get().made;
}

void FloatAlgorithm::compute() {
  m_status = Failure;
  m_output = m_input->clone(3);
  m_output->properties().setParam("gained", true);
  for (int i = 0; i < m_input->size(); ++i) {
    Record::get().see(m_input->shared(i));
    const std::shared_ptr<SharedImage> image = process(m_input->get(i));
    if (!image) {
      Log::error("FloatAlgorithm", "No image came out");
      m_output.reset();
      return;
    }
    Record::get().see(image);
    m_output->add(image, m_input->timestamp(i));
    m_output->elementwiseComponents().add(m_input->elementwiseComponents().components(i), i);
  }
  m_status = Success;
}

OwningDataList FloatAlgorithm::takeOutput() {
  OwningDataList list;
  if (m_output) list.add(std::move(m_output));
  return list;
}

bool FloatAlgorithm::accepts(const DataList& data) {
  const auto sets = data.getImages(Data::UnknownKind, Data::Ultrasound);
  return sets.size() == 1 && sets[0]->get(0).descriptor().pixelType() == PixelFloat;
}

template <typename T> static bool create(bool compatible, const DataList& data, Algorithm** algorithm) {
  if (compatible && algorithm) *algorithm = new T(dynamic_cast<SharedImageSet*>(data[0]));
  return compatible;
}

GainAlgorithm::GainAlgorithm(const SharedImageSet* input) : FloatAlgorithm(input) {
  mode.setAttribute("values", "Plain, Hamming Das, Debug: Other");
  trouble.setAttribute("values", "None, Fail, Throw, Interrupt");
  for (ParameterBase* parameter : std::initializer_list<ParameterBase*>{&factor, &offset, &outputSize, &mode, &clip,
                                                                        &count, &label, &trouble, &at})
    registerParameter(parameter);
}

bool GainAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  return create<GainAlgorithm>(accepts(data), data, algorithm);
}

std::shared_ptr<SharedImage> GainAlgorithm::process(const SharedImage& image) {
  if (m_seen++ == at) {
    if (trouble == Trouble::Fail) return nullptr;
    if (trouble == Trouble::Throw) throw std::runtime_error("the device is gone");
    if (trouble == Trouble::Interrupt) std::raise(SIGINT); // as a user's Ctrl-C in the middle of the work
  }
  auto pixels = std::static_pointer_cast<TypedImage<float>>(std::shared_ptr<MemImage>(image.mem()->clone()));
  for (std::size_t i = 0; i < pixels->size(); ++i)
    (*pixels)[i] = static_cast<float>(factor * (*pixels)[i] + offset.value().value_or(0.0));
  return std::make_shared<SharedImage>(pixels);
}

bool LevelsAlgorithm::createCompatible(const DataList& data, Algorithm** algorithm) {
  return create<LevelsAlgorithm>(accepts(data), data, algorithm);
}

std::shared_ptr<SharedImage> LevelsAlgorithm::process(const SharedImage& image) {
  const auto samples = std::static_pointer_cast<TypedImage<float>>(image.mem());
  ImageDescriptor descriptor = image.descriptor();
  descriptor.setPixelType(PixelUInt8);
  auto levels = std::make_shared<TypedImage<unsigned char>>(descriptor);
  for (std::size_t i = 0; i < levels->size(); ++i)
    (*levels)[i] =
        static_cast<unsigned char>(std::isnan((*samples)[i]) ? 0.0F : std::clamp((*samples)[i], 1.0F, 255.0F));
  auto result = std::make_shared<SharedImage>(levels);
  result->setMask(std::make_shared<IntensityMask>(PixelUInt8, 0.0));
  return result;
}

TestAlgorithmFactory::TestAlgorithmFactory() : AlgorithmFactory("Test") {
  registerAlgorithm<GainAlgorithm>("Gain", "Test;Gain");
  registerAlgorithm<LevelsAlgorithm>("Levels", "Test;Make Levels");
}

std::shared_ptr<SharedImage> floatImage(int width, int height, float value) {
  auto pixels = std::make_shared<TypedImage<float>>(width, height);
  std::fill_n(pixels->pointer(), pixels->size(), value);
  auto image = std::make_shared<SharedImage>(pixels);
  image->setModality(Data::Ultrasound);
  return image;
}

} // namespace Kelvaris::Tests
