#include "Core/Resource.h"

#include <gtest/gtest.h>

namespace Kelvaris {
namespace {

/// Answers its own name for one resource.
class Repository : public Resource::Repository {
public:
  Repository(std::string name, std::string resource) : m_name(std::move(name)), m_resource(std::move(resource)) {
    Resource::addRepository(this);
  }
  ~Repository() override { Resource::removeRepository(this); }
  std::string name() const override { return m_name; }
  bool contains(const std::string_view& name) const override { return name == m_resource; }
  std::optional<ByteBuffer> query(const std::string_view& name) const override {
    return contains(name) ? std::optional(ByteBufferView(m_name.data(), m_name.size()).copy()) : std::nullopt;
  }

private:
  std::string m_name;
  std::string m_resource;
};

TEST(Resource, IsFoundUnderRepositoryAndNameUntilThatIsGone) {
  {
    const Repository first("First", "shader.comp"), second("Second", "python/script.py");
    Resource::addRepository(&first); // known already
    for (const auto& [path, expected] : {std::pair("First/shader.comp", "First"),
                                         {"Second/python/script.py", "Second"},
                                         {"First/python/script.py", "none"},
                                         {"first/shader.comp", "none"},
                                         {"shader.comp", "none"}}) {
      const auto answer = Resource::query(path);
      EXPECT_EQ(answer ? answer->text() : "none", expected) << path;
    }
  }
  EXPECT_FALSE(Resource::query("First/shader.comp"));
  Resource::addRepository(nullptr);
}

} // namespace
} // namespace Kelvaris
