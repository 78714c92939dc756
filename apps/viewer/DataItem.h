#pragma once

#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"

#include <QString>

#include <filesystem>
#include <memory>

namespace Kelvaris::Viewer {

class Step;

/// An entry of the data list. The `Data` object lives as long as the item: when the step that made it is run again, its
/// content is replaced, so that algorithms which hold it as their input stay valid. The workspace makes items and
/// changes them. For the main thread.
class DataItem {
public:
  /// Throws std::invalid_argument for null data.
  DataItem(int id, QString name, std::unique_ptr<Data> data, Step* producer);
  DataItem(const DataItem&) = delete;
  DataItem& operator=(const DataItem&) = delete;

  /// Unique in the workspace, and the same again when a session is opened.
  int id() const { return m_id; }
  const QString& name() const { return m_name; }
  /// Not to be changed by others than the workspace.
  Data& data() const { return *m_data; }
  /// Null unless it is an image set.
  SharedImageSet* images() const { return m_images; }
  /// Null unless it is an image stream.
  ImageStream* stream() const { return m_stream; }
  /// The images as they are now (the same ones, shared), for views: they never see a set that is half replaced. Null
  /// unless it is an image set.
  std::shared_ptr<const SharedImageSet> snapshot() const;

  /// Where the present content was read from or saved to; empty: nowhere.
  const std::filesystem::path& file() const { return m_file; }
  /// The step that made it; null for what comes from files and recordings.
  Step* producer() const { return m_producer; }

  /// Kind, extent and pixel type in words, for example "volume, 128 x 2688 x 1, int16" or "12 images, 512 x 512,
  /// uint8"; "stream of volumes".
  QString description() const;

private:
  friend class Workspace;

  /// Takes over all that `content` holds, but for its name and selection, which stay.
  void replaceContent(SharedImageSet& content);

  int m_id;
  QString m_name;
  std::unique_ptr<Data> m_data;
  SharedImageSet* m_images;
  ImageStream* m_stream;
  Step* m_producer;
  std::filesystem::path m_file;
  bool m_fileIsSessions = false; ///< a session has written the file by itself
  int m_version = 0;             ///< how often the content has been replaced
};

} // namespace Kelvaris::Viewer
