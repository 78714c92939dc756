#include "Lib/Algorithm.h"

#include <algorithm>

namespace Kelvaris {

bool Algorithm::survivesDataDeletion(const Data* data) const {
  return std::find(m_factoryInfo.data.begin(), m_factoryInfo.data.end(), data) == m_factoryInfo.data.end();
}

} // namespace Kelvaris
