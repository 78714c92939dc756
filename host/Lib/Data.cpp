#include "Lib/Data.h"

#include "Lib/SharedImageSet.h"

namespace Kelvaris {

std::vector<SharedImageSet*> DataList::getImages(Data::Kind kind, Data::Modality modality) const {
  std::vector<SharedImageSet*> found;
  for (Data* data : m_data) {
    auto* set = dynamic_cast<SharedImageSet*>(data);
    if (set && (kind == Data::UnknownKind || set->kind() == kind) &&
        (modality == Data::UnknownModality || set->modality() == modality))
      found.push_back(set);
  }
  return found;
}

} // namespace Kelvaris
