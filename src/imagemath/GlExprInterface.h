#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Kelvaris::GL {
class Program;
}

namespace Kelvaris::ImageMath::internal {

class GlExprInterface;

/// Identifies a leaf by its value: leaves with equal indices share their uniforms.
struct TaggingIndex {
  std::string kind;
  std::vector<std::uint64_t> value;
  auto operator<=>(const TaggingIndex&) const = default;
};

/// The names given so far.
struct GlNames {
  std::map<TaggingIndex, const GlExprInterface*> first; ///< the first node of each identity
  std::map<std::string, int> counts;                    ///< by type
};

/// A node as a piece of a fragment shader. In the text, `pixel` is an ivec3 with column, row and slice.
class GlExprInterface {
public:
  virtual ~GlExprInterface() = default;

  /// The node's value: a float (a bool for a comparison) or, for n channels, a vecn. With `stored`, leaves on images
  /// give samples as they are stored, without scale and shift.
  virtual std::string evalString(bool stored) const = 0;
  /// Gives leaves their names: the prefix, the type, and a number. A tree is made, named and used by one thread.
  virtual void tagAndAssignNames(const std::string& prefix, GlNames& names) const;
  /// Appends the definitions of the uniforms, each once.
  virtual void getUniformDefinitionList(std::string& list) const;
  /// Appends what must stand ahead of the main expression.
  virtual void getVariableDefinitionList(std::string& list) const;
  /// Sets the uniforms, textures among them, of an enabled program with the text.
  virtual void setArguments(GL::Program& program) const;
  virtual std::vector<const GlExprInterface*> children() const { return {}; }

  virtual int channels() const = 0;
  /// Of a leaf, once it has one.
  virtual const std::string& name() const;

protected:
  GlExprInterface() = default;
  GlExprInterface(const GlExprInterface&) = default;
  GlExprInterface& operator=(const GlExprInterface&) = default;
};

using GlExpr = std::unique_ptr<GlExprInterface>;

/// A leaf with uniforms.
class GlLeaf : public GlExprInterface {
public:
  void tagAndAssignNames(const std::string& prefix, GlNames& names) const override;
  void getUniformDefinitionList(std::string& list) const override;
  void setArguments(GL::Program& program) const override;
  const std::string& name() const override { return m_name; }

protected:
  virtual TaggingIndex tag() const = 0;
  virtual void defineUniforms(std::string& list) const = 0;
  virtual void setUniforms(GL::Program& program) const = 0;

private:
  mutable std::string m_name = "uninitialized";
  mutable bool m_isFirst = true; ///< of those that share the name
};

/// "float", "vec2", "vec3", "vec4".
std::string glType(int channels);
/// "uniform <type> <name>;\n".
std::string glUniform(const std::string& type, const std::string& name);

} // namespace Kelvaris::ImageMath::internal
