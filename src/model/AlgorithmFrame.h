#pragma once

#include "Core/Parameter.h"
#include "Lib/Algorithm.h"
#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"

#include <memory>
#include <string>

namespace Kelvaris::US {

/// The one shape of the algorithms that work image by image, on an image set as well as on a stream: what they accept,
/// and how compute() goes through an image set. A class has one constant of this type and passes it to the functions
/// below:
///
///     bool createCompatible(const DataList& data, Algorithm** a) { return createCompatibleAlgorithm<Self>(kFrame,
///     data, a); } void compute() { computeImages(kFrame, *this, m_input, m_progress, m_status, m_output); }
///     OwningDataList takeOutput() { return takeImages(m_output); }
struct AlgorithmFrame {
  const char* className;   ///< log category
  const char* displayName; ///< last level of the category under which the factory has the class; text of the progress
  bool (*acceptsStream)(const ImageStream&);
  bool (*acceptsImages)(const SharedImageSet&);
  bool keepsSetState;            ///< the output starts with the set-wide state of the input (clone option 3), or empty
  bool hasProgress;              ///< one step an image; can be cancelled
  const char* errorText;         ///< "Error while filtering image ", before the index
  const char* errorOf;           ///< between the index and the number of images
  bool carriesTimestamps = true; ///< the output's images have the input's; 0 otherwise
  bool addsSetWide = false;      ///< processImage() gets the set-wide components after those of the image
  void (*finish)(SharedImageSet& output) = nullptr; ///< called at the end of a success
};

/// Tests for AlgorithmFrame::acceptsStream and acceptsImages.
bool isVolumeStream(const ImageStream& stream);
bool isImageOrVolumeStream(const ImageStream& stream);
/// One image or volume, or several.
bool holdsImages(const SharedImageSet& images);
bool holdsVolumes(const SharedImageSet& images);
/// Sample components of the first image; 0 without images.
int channelsOfFirst(const SharedImageSet& images);

/// What `data` offers to an algorithm of the frame: a stream or an ultrasound image set, or neither. At most one is not
/// null, and only where `data` holds exactly that one element and the frame accepts it.
struct CompatibleInput {
  ImageStream* stream = nullptr;
  SharedImageSet* images = nullptr;
};
CompatibleInput compatibleInput(const AlgorithmFrame& frame, const DataList& data);

/// The host's executor on that stream: processes every image, starts when told to, creates its algorithm by
/// `displayName` unless `algorithm` is given.
std::unique_ptr<Algorithm> makeStreamExecutor(ImageStream& stream, std::unique_ptr<Algorithm> algorithm,
                                              const std::string& displayName);

/// True if the data fits the frame. With `algorithm` not null, the caller gets a new T for an image set in it, or an
/// executor for a stream; false leaves it alone. With `executorGetsAlgorithm` the executor starts with a T without
/// input, otherwise it creates its own from the first emission.
template <typename T>
bool createCompatibleAlgorithm(const AlgorithmFrame& frame, const DataList& data, Algorithm** algorithm,
                               bool executorGetsAlgorithm = false) {
  const CompatibleInput input = compatibleInput(frame, data);
  if (!input.stream && !input.images) return false;
  if (!algorithm) return true;
  if (input.images)
    *algorithm = std::make_unique<T>(input.images).release();
  else
    *algorithm = makeStreamExecutor(*input.stream, executorGetsAlgorithm ? std::make_unique<T>(nullptr) : nullptr,
                                    frame.displayName)
                     .release();
  return true;
}

/// compute() of the frame: calls processImage for every image of `input` with its components, and collects what it
/// returns, with the input's modality. `status` is Failure from the start on, then Success, or Canceled;
/// where it isn't Success at the end, `output` is null. A null image from processImage ends the run with a logged
/// error.
void computeImages(const AlgorithmFrame& frame, const SequentialImageProcessor& processor, const SharedImageSet* input,
                   Progress* progress, int& status, std::unique_ptr<SharedImageSet>& output);

/// Hints for forms, the same in all algorithms: of a frequency in MHz, from 0.01 to `max`, and of a dynamic range in
/// dB.
void setFrequencyAttributes(ParameterBase& parameter, const char* max);
void setDynamicRangeAttributes(ParameterBase& parameter);

/// takeOutput() of the frame: hands over the output and leaves null; empty without output.
OwningDataList takeImages(std::unique_ptr<SharedImageSet>& output);

} // namespace Kelvaris::US
