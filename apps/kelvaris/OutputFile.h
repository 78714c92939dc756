#pragma once

#include "kelvaris/PictureStyle.h"

#include "Lib/SharedImageSet.h"

#include <filesystem>
#include <memory>
#include <string>

namespace Kelvaris::CommandLine {

/// What `kelvaris run` writes, image by image. Nothing appears under its name before finish(); an object destroyed
/// without it leaves nothing.
class OutputFile {
public:
  virtual ~OutputFile() = default;
  /// Appends the images of the set with their components and timestamps. Throws if they can't be stored.
  virtual void append(const SharedImageSet& images) = 0;
  /// Writes everything out, still under the temporary name.
  virtual void close() = 0;
  virtual void finish() = 0;
  /// What was written and where, for the user.
  virtual std::string summary() const = 0;

  /// By the extension: .kvx, or .png for pictures: one file if there is one, else name_0000.png, name_0001.png, ...
  /// (volumes: name_0000_000.png, ... slice by slice). `several` tells that more than one image will come; pictures
  /// look as `style` says. Throws std::invalid_argument for another extension.
  static std::unique_ptr<OutputFile> create(const std::filesystem::path& path, bool several,
                                            const PictureStyle& style = {});
};

} // namespace Kelvaris::CommandLine
