#include "Lib/KelvarisFile.h"

#include "Core/Log.h"
#include "Core/PropertiesIO.h"
#include "Lib/DataComponentsIO.h"
#include "Lib/Hdf5.h"
#include "Lib/Hdf5OutputDriver.h"
#include "Lib/IntensityMask.h"
#include "Lib/MaskIO.h"
#include "Lib/PendingFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <climits>
#include <stdexcept>
#include <utility>

namespace Kelvaris {
namespace {

using Hdf5::check;
using Hdf5::checked;
using Hdf5::Handle;

constexpr const char* kCategory = "KelvarisFile";
constexpr const char* kFormat = "kelvaris-images";
constexpr int kVersion = 1;
constexpr std::size_t kChunkBytes = std::size_t(1) << 20;
/// Channel data is noise in its low bits: higher levels cost several times the time for a few per cent of size.
constexpr unsigned kDeflateLevel = 1;

hid_t memoryType(int pixelType) {
  switch (pixelType) {
  case PixelInt8:
    return H5T_NATIVE_SCHAR;
  case PixelUInt8:
    return H5T_NATIVE_UCHAR;
  case PixelInt16:
    return H5T_NATIVE_SHORT;
  case PixelUInt16:
    return H5T_NATIVE_USHORT;
  case PixelInt32:
    return H5T_NATIVE_INT;
  case PixelUInt32:
    return H5T_NATIVE_UINT;
  case PixelFloat:
  case PixelHalf:
    return H5T_NATIVE_FLOAT;
  case PixelDouble:
    return H5T_NATIVE_DOUBLE;
  default:
    return H5I_INVALID_HID;
  }
}

/// The pixel type whose samples the element type `type` holds exactly; 0 if there is none.
int pixelTypeOfElements(hid_t type) {
  for (const int candidate :
       {PixelInt8, PixelUInt8, PixelInt16, PixelUInt16, PixelInt32, PixelUInt32, PixelFloat, PixelDouble}) {
    const hid_t memory = memoryType(candidate);
    if (H5Tget_class(memory) != H5Tget_class(type) || H5Tget_size(memory) != H5Tget_size(type)) continue;
    if (H5Tget_class(type) == H5T_FLOAT || H5Tget_sign(memory) == H5Tget_sign(type)) return candidate;
  }
  return 0;
}

/// As many whole slices, rows, pixels as fit into kChunkBytes.
std::array<hsize_t, 4> chunkExtent(const std::array<hsize_t, 4>& extent, std::size_t bytesPerComponent) {
  std::array<hsize_t, 4> chunk{};
  std::size_t bytes = bytesPerComponent;
  for (std::size_t i = extent.size(); i-- > 0;) {
    chunk[i] = std::clamp<hsize_t>(kChunkBytes / bytes, 1, extent[i]);
    bytes *= chunk[i];
  }
  return chunk;
}

std::string imageName(int index) {
  return fmt::format("{:05}", index);
}

/// Calls `action`; what it throws gets `where` in front.
template <typename F> auto located(const std::string& where, F&& action) {
  try {
    return action();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(fmt::format("{}: {}", where, error.what()));
  } catch (const std::length_error& error) {
    throw std::runtime_error(fmt::format("{}: {}", where, error.what()));
  }
}

Properties readProperties(hid_t object) {
  if (!Hdf5::hasAttribute(object, "properties")) return {};
  auto properties = PropertiesIO::fromXml(Hdf5::readText(object, "properties"));
  if (!properties) throw std::runtime_error("The attribute \"properties\" is no XML of properties");
  return std::move(*properties);
}

DataComponentList readComponents(hid_t object) {
  if (!Hdf5::hasAttribute(object, "components")) return {};
  auto components = DataComponentsIO::fromXml(Hdf5::readText(object, "components"));
  if (!components) throw std::runtime_error("The attribute \"components\" is no XML of components");
  return std::move(*components);
}

double readDouble(hid_t object, const char* name, double missing) {
  return Hdf5::hasAttribute(object, name) ? Hdf5::readDoubles(object, name, 1)[0] : missing;
}

ImageDescriptor readDescriptor(hid_t dataset) {
  const Handle space = checked(Handle(H5Dget_space(dataset), H5Sclose), "read the extent");
  const std::vector<hsize_t> extent = Hdf5::extent(space);
  if (extent.size() != 4)
    throw std::runtime_error(
        fmt::format("It has {} dimensions, expected 4 (slices, height, width, channels)", extent.size()));
  for (const hsize_t size : extent)
    if (size < 1 || size > INT_MAX)
      throw std::runtime_error(fmt::format("An extent is {}, expected 1 to 2^31 - 1", size));

  const Handle type = checked(Handle(H5Dget_type(dataset), H5Tclose), "read the element type");
  const int held = pixelTypeOfElements(type);
  if (held == 0)
    throw std::runtime_error("Its elements are neither integers of 8, 16 or 32 bits nor floats of 32 or 64");
  const long long pixelType = Hdf5::hasAttribute(dataset, "pixelType") ? Hdf5::readInteger(dataset, "pixelType") : held;
  if (pixelType != held && !(pixelType == PixelHalf && held == PixelFloat))
    throw std::runtime_error(fmt::format("The attribute \"pixelType\" is {}, but the elements are {}", pixelType,
                                         ImageDescriptor::pixelTypeName(held)));

  ImageDescriptor descriptor(static_cast<int>(pixelType), static_cast<int>(extent[2]), static_cast<int>(extent[1]),
                             static_cast<int>(extent[0]), static_cast<int>(extent[3]));
  if (Hdf5::hasAttribute(dataset, "spacing")) {
    const std::vector<double> spacing = Hdf5::readDoubles(dataset, "spacing", 3);
    descriptor.setSpacing({spacing[0], spacing[1], spacing[2]});
  }
  if (Hdf5::hasAttribute(dataset, "metric")) descriptor.setMetric(Hdf5::readInteger(dataset, "metric") != 0);
  descriptor.setShift(readDouble(dataset, "shift", 0.0));
  descriptor.setScale(readDouble(dataset, "scale", 1.0));
  return descriptor;
}

/// Null if no pixel is marked invalid. A mask that can't be read is an error in the log and no reason to keep the image
/// back.
std::shared_ptr<const Mask> readMask(hid_t dataset, const ImageDescriptor& descriptor, const std::string& where) {
  if (Hdf5::hasAttribute(dataset, "mask"))
    return std::make_shared<IntensityMask>(descriptor.pixelType(), Hdf5::readDoubles(dataset, "mask", 1)[0]);
  if (!Hdf5::hasAttribute(dataset, "maskShape")) return nullptr;
  const std::string xml = Hdf5::readText(dataset, "maskShape");
  std::shared_ptr<const Mask> mask = MaskIO::fromXml(xml, descriptor);
  if (!mask) Log::error(kCategory, "{}: without its mask, the attribute \"maskShape\" holds none", where);
  return mask;
}

void writeMask(hid_t dataset, const Mask* mask, const std::string& where) {
  if (!mask) return;
  if (const auto* intensity = dynamic_cast<const IntensityMask*>(mask))
    Hdf5::writeDoubles(dataset, "mask", {intensity->value()});
  else if (!mask->id().empty())
    Hdf5::writeText(dataset, "maskShape", MaskIO::toXml(*mask));
  else
    Log::warning(kCategory, "{}: its mask is of a kind that can't be stored, all pixels count as valid", where);
}

} // namespace

struct KelvarisFile::Reader::Impl {
  std::string path;
  Handle file;
  Handle images;
  int size = 0;
  SharedImageSet set;

  void open() {
    file = Hdf5::openFile(path);
    located(path, [&] {
      if (!Hdf5::hasAttribute(file, "format") || Hdf5::readText(file, "format") != kFormat)
        throw std::runtime_error(fmt::format("It is not a file of images (attribute \"format\" = \"{}\")", kFormat));
      if (const long long version = Hdf5::readInteger(file, "version"); version != kVersion)
        throw std::runtime_error(fmt::format("It has version {} of the format, only {} is known", version, kVersion));
      if (Hdf5::hasAttribute(file, "modality"))
        set.setModality(static_cast<Data::Modality>(Hdf5::readInteger(file, "modality")));
      if (Hdf5::hasAttribute(file, "kind")) {
        const long long kind = Hdf5::readInteger(file, "kind");
        set.setVolumetric(kind == Data::OneVolume || kind == Data::Volumes);
      }
      set.properties() = readProperties(file);
      set.components() = readComponents(file);
      images = checked(Handle(H5Gopen2(file, "images", H5P_DEFAULT), H5Gclose), "open the group /images");
      H5G_info_t info{};
      check(H5Gget_info(images, &info), "read the group /images");
      if (info.nlinks > INT_MAX) throw std::runtime_error(fmt::format("It holds {} images", info.nlinks));
      size = static_cast<int>(info.nlinks);
    });
  }

  std::string imageLocation(int index) const { return fmt::format("{}, image {}", path, index); }

  /// Calls `action` with the dataset of the image.
  template <typename F> auto withImage(int index, F&& action) const {
    if (index < 0 || index >= size)
      throw std::out_of_range(fmt::format("There is no image {} in {}, which holds {}", index, path, size));
    const Hdf5::QuietErrors quiet;
    return located(imageLocation(index), [&] {
      const std::string name = imageName(index);
      const Handle dataset = checked(Handle(H5Dopen2(images, name.c_str(), H5P_DEFAULT), H5Dclose),
                                     fmt::format("open the dataset /images/{}", name));
      return action(dataset);
    });
  }
};

KelvarisFile::Reader::Reader(const std::filesystem::path& path) : m_impl(std::make_unique<Impl>()) {
  const Hdf5::QuietErrors quiet;
  m_impl->path = path.string();
  m_impl->open();
}

KelvarisFile::Reader::~Reader() = default;

int KelvarisFile::Reader::size() const {
  return m_impl->size;
}

const SharedImageSet& KelvarisFile::Reader::set() const {
  return m_impl->set;
}

ImageDescriptor KelvarisFile::Reader::descriptor(int index) const {
  return m_impl->withImage(index, [](hid_t dataset) { return readDescriptor(dataset); });
}

double KelvarisFile::Reader::timestamp(int index) const {
  return m_impl->withImage(index, [](hid_t dataset) { return readDouble(dataset, "timestamp", 0.0); });
}

DataComponentList KelvarisFile::Reader::components(int index) const {
  return m_impl->withImage(index, [](hid_t dataset) { return readComponents(dataset); });
}

std::shared_ptr<const Mask> KelvarisFile::Reader::mask(int index) const {
  return m_impl->withImage(
      index, [&](hid_t dataset) { return readMask(dataset, readDescriptor(dataset), m_impl->imageLocation(index)); });
}

std::shared_ptr<SharedImage> KelvarisFile::Reader::image(int index) const {
  return m_impl->withImage(index, [&](hid_t dataset) {
    const ImageDescriptor descriptor = readDescriptor(dataset);
    Hdf5::checkStorage(dataset, descriptor.byteSize());
    std::shared_ptr<MemImage> pixels = MemImage::create(descriptor);
    check(H5Dread(dataset, memoryType(descriptor.pixelType()), H5S_ALL, H5S_ALL, H5P_DEFAULT, pixels->data()),
          "read the samples");
    auto image = std::make_shared<SharedImage>(pixels);
    image->setModality(m_impl->set.modality());
    if (Hdf5::hasAttribute(dataset, "matrix")) {
      const std::vector<double> values = Hdf5::readDoubles(dataset, "matrix", 16);
      image->setMatrix(Eigen::Map<const Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>(values.data()));
    }
    image->setMask(readMask(dataset, descriptor, m_impl->imageLocation(index)));
    return image;
  });
}

struct KelvarisFile::Writer::Impl {
  explicit Impl(const std::filesystem::path& path) : pending(path) {}

  PendingFile pending;
  Hdf5::OutputState output;
  Handle file;
  Handle images;
  int size = 0;
  bool volumes = false;

  /// Of the image that comes next.
  std::string imageLocation() const { return fmt::format("{}, image {}", pending.target().string(), size); }

  void create() {
    // The newest format guards its metadata by checksums, so that damage shows when the file is opened.
    const Handle access = Hdf5::outputAccess(output);
    check(H5Pset_libver_bounds(access, H5F_LIBVER_V110, H5F_LIBVER_V110), "prepare the file");
    file = checked(Handle(H5Fcreate(pending.path().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access), H5Fclose),
                   "create the file");
    images = checked(Handle(H5Gcreate2(file, "images", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Gclose),
                     "create the group /images");
  }

  void append(const MemImage& pixels, const SharedImage& image, const DataComponentList& components, double timestamp) {
    const ImageDescriptor& d = image.descriptor();
    const std::array<hsize_t, 4> extent = {static_cast<hsize_t>(d.slices()), static_cast<hsize_t>(d.height()),
                                           static_cast<hsize_t>(d.width()), static_cast<hsize_t>(d.channels())};
    const Handle layout = checked(Handle(H5Pcreate(H5P_DATASET_CREATE), H5Pclose), "prepare an image");
    check(H5Pset_chunk(layout, 4, chunkExtent(extent, static_cast<std::size_t>(d.bytesPerComponent())).data()),
          "prepare an image");
    check(H5Pset_shuffle(layout), "prepare an image");
    check(H5Pset_deflate(layout, kDeflateLevel), "prepare an image");
    check(H5Pset_fill_time(layout, H5D_FILL_TIME_NEVER), "prepare an image");
    const Handle space = checked(Handle(H5Screate_simple(4, extent.data(), nullptr), H5Sclose), "prepare an image");
    const hid_t type = memoryType(d.pixelType());
    Handle dataset = checked(
        Handle(H5Dcreate2(images, imageName(size).c_str(), type, space, H5P_DEFAULT, layout, H5P_DEFAULT), H5Dclose),
        "create an image");
    check(H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, pixels.data()), "write the samples");

    Hdf5::writeInteger(dataset, "pixelType", d.pixelType());
    Hdf5::writeDoubles(dataset, "spacing", {d.spacing().x(), d.spacing().y(), d.spacing().z()});
    Hdf5::writeInteger(dataset, "metric", d.isMetric() ? 1 : 0);
    Hdf5::writeDoubles(dataset, "shift", {d.shift()});
    Hdf5::writeDoubles(dataset, "scale", {d.scale()});
    std::vector<double> matrix(16);
    Eigen::Map<Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>(matrix.data()) = image.matrix();
    Hdf5::writeDoubles(dataset, "matrix", matrix);
    Hdf5::writeDoubles(dataset, "timestamp", {timestamp});
    writeMask(dataset, image.mask().get(), imageLocation());
    if (!components.empty()) Hdf5::writeText(dataset, "components", DataComponentsIO::toXml(components));
    if (!dataset.close()) throw std::runtime_error(fmt::format("Can't write the samples: {}", Hdf5::lastError()));
    output.check();
    ++size;
    volumes = volumes || d.slices() > 1;
  }

  Data::Kind kind(bool isVolumetric) const {
    if (size == 0) return Data::UnknownKind;
    if (size == 1) return volumes || isVolumetric ? Data::OneVolume : Data::OneImage;
    return volumes || isVolumetric ? Data::Volumes : Data::Images;
  }

  void close(const SharedImageSet& set) {
    Hdf5::writeText(file, "format", kFormat);
    Hdf5::writeInteger(file, "version", kVersion);
    Hdf5::writeInteger(file, "modality", set.modality());
    Hdf5::writeInteger(file, "kind", kind(set.isVolumetric()));
    if (!set.properties().empty()) Hdf5::writeText(file, "properties", PropertiesIO::toXml(set.properties()));
    if (!set.components().empty()) Hdf5::writeText(file, "components", DataComponentsIO::toXml(set.components()));
    if (!images.close() || H5Fflush(file, H5F_SCOPE_GLOBAL) < 0 || !file.close())
      throw std::runtime_error(fmt::format("Can't complete the file: {}", Hdf5::lastError()));
    output.check();
  }
};

KelvarisFile::Writer::Writer(const std::filesystem::path& path) : m_impl(std::make_unique<Impl>(path)) {
  const Hdf5::QuietErrors quiet;
  located(m_impl->pending.target().string(), [&] { m_impl->create(); });
}

KelvarisFile::Writer::~Writer() {
  const Hdf5::QuietErrors quiet;
  m_impl.reset();
}

void KelvarisFile::Writer::append(const SharedImage& image, const DataComponentList& components, double timestamp) {
  const std::shared_ptr<MemImage> pixels = image.mem();
  const Hdf5::QuietErrors quiet;
  located(m_impl->imageLocation(), [&] { m_impl->append(*pixels, image, components, timestamp); });
}

void KelvarisFile::Writer::close(const SharedImageSet& set) {
  const Hdf5::QuietErrors quiet;
  located(m_impl->pending.target().string(), [&] { m_impl->close(set); });
}

void KelvarisFile::Writer::finish() {
  m_impl->pending.commit();
}

void KelvarisFile::save(const std::filesystem::path& path, const SharedImageSet& set) {
  Writer writer(path);
  for (int i = 0; i < set.size(); ++i)
    writer.append(set.get(i), set.elementwiseComponents().components(i), set.timestamp(i));
  writer.close(set);
  writer.finish();
}

std::unique_ptr<SharedImageSet> KelvarisFile::load(const std::filesystem::path& path) {
  const Reader reader(path);
  std::unique_ptr<SharedImageSet> set = reader.set().clone(3);
  for (int i = 0; i < reader.size(); ++i) {
    set->add(reader.image(i), reader.timestamp(i));
    set->elementwiseComponents().components(i) = reader.components(i);
  }
  return set;
}

} // namespace Kelvaris
