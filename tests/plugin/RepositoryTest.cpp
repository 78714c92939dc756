#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"

#include "resources/EmbeddedResources.h"
#include "support/ExpectedLog.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <thread>

namespace Kelvaris {
namespace {

namespace MonoCypher = Cryptography::MonoCypher;

TEST(Repository, ServesTheTextsOfItsFolder) {
  const Repository_KelvarisUSImgFormationPlugin repository;
  EXPECT_EQ(repository.name(), "KelvarisUSImgFormationPlugin");
  ASSERT_FALSE(EmbeddedResources::entries().empty());
  for (const EmbeddedResources::Entry& entry : EmbeddedResources::entries()) {
    EXPECT_TRUE(repository.contains(entry.name));
    const auto first = repository.query(entry.name);
    const auto second = repository.query(entry.name);
    ASSERT_TRUE(first && second) << entry.name;
    EXPECT_EQ(first->text(), Tests::readFile(std::filesystem::path(KELVARIS_RESOURCE_FOLDER) / entry.name));
    EXPECT_NE(first->data(), second->data());
    const std::string_view stored(entry.stored.data(), entry.stored.size());
    EXPECT_EQ(stored.find("#version"), std::string_view::npos) << "the text must not lie in the library as it is";
  }
}

TEST(Repository, IsReachedUnderExactNamesWhileItLives) {
  const auto query = [](const std::string& name) { return Resource::query("KelvarisUSImgFormationPlugin", name); };
  {
    const auto repository = std::make_unique<Repository_KelvarisUSImgFormationPlugin>();
    EXPECT_FALSE(query("SamplingPositionMap.comp"));
    Resource::addRepository(repository.get());
    for (const char* name : {"samplingpositionmap.comp", "SamplingPositionMap", ""})
      EXPECT_FALSE(repository->contains(name) || query(name)) << name; // an unexpected log entry would fail the test
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i)
      readers.emplace_back([&] {
        for (int round = 0; round < 50; ++round)
          EXPECT_TRUE(query("SamplingPositionMap.comp"));
      });
    for (std::thread& reader : readers)
      reader.join();
  }
  EXPECT_FALSE(query("SamplingPositionMap.comp"));
}

/// A repository whose stored forms the test has made.
struct CustomRepository : Repository_KelvarisUSImgFormationPlugin {
  CustomRepository(Table resources, const MonoCypher::Key& key)
      : Repository_KelvarisUSImgFormationPlugin(std::move(resources), key) {}
};

TEST(Repository, ChunksAreJoinedAndDamageIsReported) {
  const MonoCypher::Key key{1, 2, 3};
  const std::string text = "a text in several chunks";
  const ByteBuffer stored = MonoCypher::encrypt(ByteBufferView(text.data(), text.size()), key);
  ByteBuffer damaged = stored;
  damaged.data()[30] = static_cast<char>(damaged.data()[30] + 1);
  const char* bytes = stored.data();
  const CustomRepository repository(
      {{"whole", {stored}},
       {"chunks", {{bytes, 1}, {bytes + 1, 40}, {bytes + 41, 0}, {bytes + 41, stored.size() - 41}}},
       {"swapped", {{bytes + 40, stored.size() - 40}, {bytes, 40}}},
       {"damaged", {damaged}},
       {"short", {{bytes, 39}}},
       {"none", {}}},
      key);
  for (const char* name : {"whole", "chunks"})
    EXPECT_EQ(repository.query(name).value_or(ByteBuffer()).text(), text) << name;
  for (const std::string name : {"swapped", "damaged", "short", "none"}) {
    const Tests::ExpectedLog log;
    EXPECT_FALSE(repository.query(name));
    EXPECT_EQ(log.messages(),
              std::vector<std::string>{"4 Core.Resource.Repository: Error during decryption of resource " + name +
                                       " from repository KelvarisUSImgFormationPlugin"});
  }
  EXPECT_TRUE(repository.query("whole")) << "the others stay usable";
}

} // namespace
} // namespace Kelvaris
