#pragma once

#include "Core/Properties.h"
#include "Lib/Data.h"
#include "Lib/DataComponent.h"
#include "Lib/SharedImage.h"

#include <memory>
#include <vector>

namespace Kelvaris {

/// Images in order, with components of the set as a whole and of each image.
class SharedImageSet : public Data {
public:
  /// The host's selection of images; here the focus alone.
  class Selection {
  public:
    /// Index of the focused image.
    int focus() const { return m_focus; }
    void setFocus(int index) { m_focus = index; }

  private:
    int m_focus = 0;
  };

  /// OneImage or OneVolume, Images or Volumes; UnknownKind without images.
  Kind kind() const override;
  Modality modality() const override { return m_modality; }
  void setModality(Modality modality) { m_modality = modality; }

  /// True if images of one slice count as volumes, too: channel data are volumes, also with a single event.
  bool isVolumetric() const { return m_volumetric; }
  void setVolumetric(bool volumetric) { m_volumetric = volumetric; }

  int size() const { return static_cast<int>(m_images.size()); }
  /// Throws std::out_of_range.
  const SharedImage& get(int index) const { return *shared(index); }
  std::shared_ptr<SharedImage> shared(int index) const;
  void add(std::shared_ptr<SharedImage> image, double timestamp = 0.0);
  /// Removes all images with their components and timestamps.
  void removeImages();

  /// In milliseconds. Throws std::out_of_range.
  double timestamp(int index) const;
  void setTimestamp(double milliseconds, int index);

  DataComponentList& components() { return m_components; }
  const DataComponentList& components() const { return m_components; }
  ElementwiseDataComponentList& elementwiseComponents() { return m_elementwise; }
  const ElementwiseDataComponentList& elementwiseComponents() const { return m_elementwise; }

  Properties& properties() { return m_properties; }
  const Properties& properties() const { return m_properties; }
  Selection& selection() { return m_selection; }
  const Selection& selection() const { return m_selection; }

  /// Gives all images the form that the GPU works on, beside those that they have: a device buffer where there is a
  /// CUDA device, else a texture where there is OpenGL. An image that can't have it stays as it is.
  virtual void prepareForGpu() const;

  /// 1 and 3: the set-wide state (components, properties, modality, name, isVolumetric), no images. 4: that and the
  /// same images, shared, with their components and timestamps.
  virtual std::unique_ptr<SharedImageSet> clone(int option) const;

protected:
  /// Gives a new set what clone() promises.
  void cloneInto(SharedImageSet& copy, int option) const;

private:
  void checkIndex(int index) const;

  std::vector<std::shared_ptr<SharedImage>> m_images;
  std::vector<double> m_timestamps;
  Modality m_modality = UnknownModality;
  bool m_volumetric = false;
  DataComponentList m_components;
  ElementwiseDataComponentList m_elementwise;
  Properties m_properties;
  Selection m_selection;
};

} // namespace Kelvaris
