#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"

#include "Core/Log.h"
#include "resources/EmbeddedResources.h"
#include "resources/ResourceKey.h"

#include <algorithm>
#include <utility>

namespace Kelvaris {
namespace {

ByteBuffer joined(const std::vector<ByteBufferView>& chunks) {
  if (chunks.size() == 1) return chunks.front().copy();
  std::size_t size = 0;
  for (const ByteBufferView& chunk : chunks)
    size += chunk.size();
  ByteBuffer buffer(size);
  char* end = buffer.data();
  for (const ByteBufferView& chunk : chunks)
    end = std::copy_n(chunk.data(), chunk.size(), end);
  return buffer;
}

} // namespace

Repository_KelvarisUSImgFormationPlugin::Repository_KelvarisUSImgFormationPlugin()
    : m_key(EmbeddedResources::keyBytes(EmbeddedResources::kKeyWords)) {
  for (const EmbeddedResources::Entry& entry : EmbeddedResources::entries())
    m_resources[std::string(entry.name)] = {entry.stored};
}

Repository_KelvarisUSImgFormationPlugin::Repository_KelvarisUSImgFormationPlugin(
    Table resources, const Cryptography::MonoCypher::Key& key)
    : m_resources(std::move(resources)), m_key(key) {}

// The host lets go first: a query on another thread may still be reading the table.
Repository_KelvarisUSImgFormationPlugin::~Repository_KelvarisUSImgFormationPlugin() {
  Resource::removeRepository(this);
}

std::string Repository_KelvarisUSImgFormationPlugin::name() const {
  return "KelvarisUSImgFormationPlugin";
}

bool Repository_KelvarisUSImgFormationPlugin::contains(const std::string_view& name) const {
  return m_resources.contains(std::string(name));
}

std::optional<ByteBuffer> Repository_KelvarisUSImgFormationPlugin::query(const std::string_view& name) const {
  const auto found = m_resources.find(std::string(name));
  if (found == m_resources.end()) return std::nullopt;
  std::optional<ByteBuffer> plain = Cryptography::MonoCypher::decrypt(joined(found->second), m_key);
  if (!plain)
    Log::error("Core.Resource.Repository", "Error during decryption of resource {} from repository {}", name,
               this->name());
  return plain;
}

} // namespace Kelvaris
