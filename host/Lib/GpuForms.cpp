#include "Lib/GpuForms.h"

#include "Core/Log.h"
#include "Lib/SharedImage.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Kelvaris {

GpuForms& GpuForms::get() {
  static GpuForms forms;
  return forms;
}

GpuForms::Registration::Registration(Way way) : m_name(way.name) {
  GpuForms& forms = get();
  const std::scoped_lock lock(forms.m_mutex);
  const auto behind =
      std::find_if(forms.m_ways.begin(), forms.m_ways.end(), [&](const Way& other) { return other.rank > way.rank; });
  forms.m_ways.insert(behind, std::move(way));
}

GpuForms::Registration::~Registration() {
  GpuForms& forms = get();
  const std::scoped_lock lock(forms.m_mutex);
  std::erase_if(forms.m_ways, [this](const Way& way) { return way.name == m_name; });
}

void GpuForms::make(const SharedImage& image) const {
  std::vector<Way> ways;
  {
    const std::scoped_lock lock(m_mutex);
    ways = m_ways;
  }
  try {
    const auto way = std::find_if(ways.begin(), ways.end(), [](const Way& w) { return w.isAvailable(); });
    if (way != ways.end()) way->make(image);
  } catch (const std::exception& error) {
    Log::debug("GpuForms", "An image ({}) stays where it is: {}", image.descriptor().toString(), error.what());
  }
}

} // namespace Kelvaris
