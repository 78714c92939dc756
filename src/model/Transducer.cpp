#include "model/Transducer.h"

#include "Core/Log.h"
#include "model/PropertyReading.h"

#include <cmath>

namespace Kelvaris::US {
namespace {

constexpr const char* kCategory = "Transducer";

bool isClose(double a, double b) {
  return std::abs(a - b) < 1e-12;
}

} // namespace

std::vector<Eigen::Vector3d> computeElementsLinear(int numElements, double pitch) {
  std::vector<Eigen::Vector3d> positions;
  if (numElements < 1) return positions;
  positions.reserve(static_cast<std::size_t>(numElements));
  const double first = pitch * ((1 - numElements) * 0.5);
  for (int i = 0; i < numElements; ++i)
    positions.emplace_back(first + i * pitch, 0.0, 0.0);
  return positions;
}

std::vector<Eigen::Vector3d> computeElementsConvex(int numElements, double pitch, double radius) {
  std::vector<Eigen::Vector3d> positions;
  if (numElements < 1) return positions;
  positions.reserve(static_cast<std::size_t>(numElements));
  const double step = pitch / radius;
  const double first = (numElements - 1) * -step * 0.5;
  for (int i = 0; i < numElements; ++i) {
    const double angle = i * step + first;
    positions.emplace_back(radius * std::sin(angle), radius * std::cos(angle) - radius, 0.0);
  }
  return positions;
}

void Transducer::configureLinear(int numElements, double pitch) {
  m_numElements = numElements;
  m_pitch = pitch;
  m_radiusCurvature.reset();
}

void Transducer::configureConvex(int numElements, double pitch, double radius) {
  m_numElements = numElements;
  m_pitch = pitch;
  m_radiusCurvature = radius;
}

Transducer Transducer::createLinear(int numElements, double pitch) {
  Transducer transducer;
  transducer.configureLinear(numElements, pitch);
  return transducer;
}

Transducer Transducer::createConvex(int numElements, double pitch, double radius) {
  Transducer transducer;
  transducer.configureConvex(numElements, pitch, radius);
  return transducer;
}

std::vector<Eigen::Vector3d> Transducer::elementPositions() const {
  return m_radiusCurvature ? computeElementsConvex(m_numElements, m_pitch, *m_radiusCurvature)
                           : computeElementsLinear(m_numElements, m_pitch);
}

void Transducer::configure(const Properties* properties) {
  if (!properties) return;
  if (!properties->hasParam("type") || !properties->hasParam("numberElements") || !properties->hasParam("pitch")) {
    Log::error(kCategory, "Incomplete properties during configure");
    return;
  }
  std::string type;
  int numElements = 0;
  double pitch = 0.0;
  if (!properties->param("type", type) || !properties->param("numberElements", numElements) ||
      !properties->param("pitch", pitch))
    return;

  if (numElements < 2) {
    Log::error(kCategory, "Number of elements {} is too low, at least 2 elements are required.", numElements);
    return;
  }
  if (numElements > kMaxStoredElements) {
    Log::error(kCategory, "Number of elements {} is too high, at most {} elements are supported.", numElements,
               kMaxStoredElements);
    return;
  }
  if (type == "linear") {
    configureLinear(numElements, pitch);
  } else if (type == "convex") {
    double radius = 0.0;
    if (!readIfPresent(*properties, "radiusCurvature", radius)) return;
    configureConvex(numElements, pitch, radius);
  } else {
    Log::error(kCategory, "Unknown transducer type {} during configure", type);
  }
}

void Transducer::configuration(Properties* properties) const {
  if (!properties) return;
  properties->setParam("numberElements", m_numElements);
  properties->setParam("pitch", m_pitch);
  properties->setParam("type", m_radiusCurvature ? "convex" : "linear");
  if (m_radiusCurvature) properties->setParam("radiusCurvature", *m_radiusCurvature);
}

bool Transducer::operator==(const Transducer& other) const {
  if (m_numElements != other.m_numElements || !isClose(m_pitch, other.m_pitch)) return false;
  if (isLinear()) return other.isLinear();
  return other.isConvex() && isClose(*m_radiusCurvature, *other.m_radiusCurvature);
}

} // namespace Kelvaris::US
