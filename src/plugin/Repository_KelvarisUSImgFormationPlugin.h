#pragma once

#include "Core/Cryptography.h"
#include "Core/Resource.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace Kelvaris {

/// The plugin's shaders and scripts, kept enciphered in the library. Every query deciphers afresh into a buffer of its
/// own. Removes itself from the host when it ends.
class Repository_KelvarisUSImgFormationPlugin : public Resource::Repository {
public:
  Repository_KelvarisUSImgFormationPlugin();
  ~Repository_KelvarisUSImgFormationPlugin() override;
  Repository_KelvarisUSImgFormationPlugin(const Repository_KelvarisUSImgFormationPlugin&) = delete;
  Repository_KelvarisUSImgFormationPlugin& operator=(const Repository_KelvarisUSImgFormationPlugin&) = delete;

  /// "KelvarisUSImgFormationPlugin".
  std::string name() const override;
  bool contains(const std::string_view& name) const override;
  /// Nothing for an unknown name, and, with a logged error, for a stored form that can't be deciphered.
  std::optional<ByteBuffer> query(const std::string_view& name) const override;

protected:
  /// Resource name to byte ranges in read-only data, which together are the resource's stored form.
  using Table = std::unordered_map<std::string, std::vector<ByteBufferView>>;

  Repository_KelvarisUSImgFormationPlugin(Table resources, const Cryptography::MonoCypher::Key& key);

private:
  Table m_resources;
  Cryptography::MonoCypher::Key m_key;
};

} // namespace Kelvaris
