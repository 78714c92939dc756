#include "viewer/DataItem.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Kelvaris::Viewer {
namespace {

QString extentOf(const ImageDescriptor& descriptor, bool volume) {
  QString text = QString("%1 x %2").arg(descriptor.width()).arg(descriptor.height());
  if (volume) text += QString(" x %1").arg(descriptor.slices());
  text += ", " + QString::fromStdString(ImageDescriptor::pixelTypeName(descriptor.pixelType()));
  return descriptor.channels() == 1 ? text : text + QString(", %1 channels").arg(descriptor.channels());
}

QString describe(const SharedImageSet& set) {
  if (set.size() == 0) return "no images";
  const bool volumes = set.kind() == Data::OneVolume || set.kind() == Data::Volumes;
  QString text = volumes ? "volume" : "image";
  if (set.size() > 1) text = QString("%1 %2s").arg(set.size()).arg(text);
  const ImageDescriptor& first = set.get(0).descriptor();
  text += ", " + extentOf(first, volumes);
  for (int i = 1; i < set.size(); ++i)
    if (set.get(i).descriptor().dimensions() != first.dimensions()) return text + ", and others";
  return text;
}

} // namespace

DataItem::DataItem(int id, QString name, std::unique_ptr<Data> data, Step* producer)
    : m_id(id),
      m_name(std::move(name)),
      m_data(std::move(data)),
      m_images(dynamic_cast<SharedImageSet*>(m_data.get())),
      m_stream(dynamic_cast<ImageStream*>(m_data.get())),
      m_producer(producer) {
  if (!m_data) throw std::invalid_argument("An entry of the data list needs data, got null");
}

std::shared_ptr<const SharedImageSet> DataItem::snapshot() const {
  return m_images ? m_images->clone(4) : nullptr;
}

QString DataItem::description() const {
  if (m_images) return describe(*m_images);
  switch (m_data->kind()) {
  case Data::ImageStreamKind:
    return "stream of images";
  case Data::VolumeStreamKind:
    return "stream of volumes";
  default:
    return m_stream || m_data->kind() == Data::OtherStreamKind ? "stream" : "data of another kind";
  }
}

void DataItem::replaceContent(SharedImageSet& content) {
  m_images->removeImages();
  for (int i = 0; i < content.size(); ++i) {
    m_images->add(content.shared(i), content.timestamp(i));
    m_images->elementwiseComponents().components(i) = std::move(content.elementwiseComponents().components(i));
  }
  m_images->components() = std::move(content.components());
  m_images->properties() = std::move(content.properties());
  m_images->setModality(content.modality());
  m_images->setVolumetric(content.isVolumetric());
  m_images->selection().setFocus(std::clamp(m_images->selection().focus(), 0, std::max(0, content.size() - 1)));
  m_file.clear();
  m_fileIsSessions = false;
  ++m_version;
}

} // namespace Kelvaris::Viewer
