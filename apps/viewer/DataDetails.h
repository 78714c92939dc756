#pragma once

#include "Core/Properties.h"

#include <QSet>
#include <QTreeWidget>

namespace Kelvaris::Viewer {

class DataItem;

/// What is known about an entry of the data list: its images and the properties of its components.
class DataDetails : public QTreeWidget {
  Q_OBJECT

public:
  explicit DataDetails(QWidget* parent = nullptr);

  /// Null: nothing. Which branches are open stays. Nothing is done for a stream that is shown as it is.
  void show(const DataItem* item);

private:
  void remember();

  QSet<QString> m_closed;
  int m_stream = 0;      ///< the id of the stream that is shown; 0: none is
  int m_size = 0;        ///< and its size
  QString m_description; ///< and what it is
  Properties m_settings; ///< and what it is set to
};

/// The ids of the components of the set and of its first image, in order, each once.
QStringList componentsOf(const DataItem& item);

} // namespace Kelvaris::Viewer
