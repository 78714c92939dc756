#include "module/Names.h"

#include <fmt/format.h>
#include <pybind11/pybind11.h>

namespace Kelvaris::Python {

std::string modalityName(Data::Modality modality) {
  return modality == Data::Ultrasound ? "ultrasound" : "unknown";
}

Data::Modality modalityFromName(const std::string& name) {
  for (const Data::Modality modality : {Data::UnknownModality, Data::Ultrasound})
    if (modalityName(modality) == name) return modality;
  throw pybind11::value_error(fmt::format("There is no modality \"{}\"; expected \"ultrasound\" or \"unknown\"", name));
}

std::string kindName(Data::Kind kind) {
  switch (kind) {
  case Data::OneImage:
    return "image";
  case Data::OneVolume:
    return "volume";
  case Data::Images:
    return "images";
  case Data::Volumes:
    return "volumes";
  case Data::ImageStreamKind:
    return "image stream";
  case Data::VolumeStreamKind:
    return "volume stream";
  case Data::OtherStreamKind:
    return "other stream";
  case Data::UnknownKind:
    break;
  }
  return "unknown";
}

} // namespace Kelvaris::Python
