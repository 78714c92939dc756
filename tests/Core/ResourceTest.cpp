#include "Core/Resource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace Kelvaris {
namespace {

ByteBuffer bytes(std::string_view text) {
  return ByteBufferView(text.data(), text.size()).copy();
}

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
    return contains(name) ? std::optional(bytes(m_name)) : std::nullopt;
  }

private:
  std::string m_name;
  std::string m_resource;
};

TEST(Resource, IsFoundUnderRepositoryAndName) {
  const Repository first("First", "shader.comp");
  const Repository second("Second", "python/script.py");
  const struct {
    const char* path;
    const char* answer;
  } table[] = {{"First/shader.comp", "First"},     {"Second/python/script.py", "Second"},
               {"First/python/script.py", "none"}, {"first/shader.comp", "none"},
               {"/shader.comp", "none"},           {"", "none"}};
  for (const auto& row : table) {
    const auto answer = Resource::query(row.path);
    EXPECT_EQ(answer ? std::string(answer->text()) : "none", row.answer) << row.path;
  }
  EXPECT_EQ(Resource::query("Second", "python/script.py")->text(), "Second");
  EXPECT_FALSE(Resource::query("Second", "/python/script.py"));
}

TEST(Resource, IsGoneWithItsRepository) {
  {
    const Repository repository("Passing", "a");
    Resource::addRepository(&repository); // known already
    EXPECT_TRUE(Resource::query("Passing/a"));
  }
  EXPECT_FALSE(Resource::query("Passing/a"));
  Resource::addRepository(nullptr);
  Resource::removeRepository(nullptr);
}

TEST(Resource, QueriesRunWhileRepositoriesComeAndGo) {
  const Repository lasting("Lasting", "a");
  std::atomic<bool> stop = false;
  std::thread reader([&] {
    while (!stop) {
      EXPECT_TRUE(Resource::query("Lasting/a"));
      const auto answer = Resource::query("Passing/a");
      EXPECT_TRUE(!answer || answer->text() == "Passing");
    }
  });
  for (int i = 0; i < 200; ++i)
    const Repository passing("Passing", "a");
  stop = true;
  reader.join();
}

} // namespace
} // namespace Kelvaris
