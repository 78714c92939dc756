#include "imagemath/GlExprInterface.h"

namespace Kelvaris::ImageMath::internal {

void GlExprInterface::tagAndAssignNames(const std::string& prefix, GlNames& names) const {
  for (const GlExprInterface* child : children())
    child->tagAndAssignNames(prefix, names);
}

void GlExprInterface::getUniformDefinitionList(std::string& list) const {
  for (const GlExprInterface* child : children())
    child->getUniformDefinitionList(list);
}

void GlExprInterface::getVariableDefinitionList(std::string& list) const {
  for (const GlExprInterface* child : children())
    child->getVariableDefinitionList(list);
}

void GlExprInterface::setArguments(GL::Program& program) const {
  for (const GlExprInterface* child : children())
    child->setArguments(program);
}

const std::string& GlExprInterface::name() const {
  static const std::string none;
  return none;
}

void GlLeaf::tagAndAssignNames(const std::string& prefix, GlNames& names) const {
  GlExprInterface::tagAndAssignNames(prefix, names);
  const TaggingIndex index = tag();
  const auto [entry, isNew] = names.first.emplace(index, this);
  m_isFirst = isNew;
  m_name = isNew ? prefix + index.kind + std::to_string(names.counts[index.kind]++) : entry->second->name();
}

void GlLeaf::getUniformDefinitionList(std::string& list) const {
  GlExprInterface::getUniformDefinitionList(list);
  if (m_isFirst) defineUniforms(list);
}

void GlLeaf::setArguments(GL::Program& program) const {
  GlExprInterface::setArguments(program);
  if (m_isFirst) setUniforms(program);
}

std::string glType(int channels) {
  return channels == 1 ? "float" : "vec" + std::to_string(channels);
}

std::string glUniform(const std::string& type, const std::string& name) {
  return "uniform " + type + " " + name + ";\n";
}

} // namespace Kelvaris::ImageMath::internal
