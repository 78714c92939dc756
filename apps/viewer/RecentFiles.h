#pragma once

#include <QMenu>

class QSettings;

namespace Kelvaris::Viewer {

/// The files that were opened last, newest first.
class RecentFiles : public QMenu {
  Q_OBJECT

public:
  /// `settings`, where they are kept from one start to the next, must outlive the menu; null: they aren't.
  explicit RecentFiles(QSettings* settings, QWidget* parent = nullptr);

  void add(const QString& path);

Q_SIGNALS:
  void chosen(const QString& path);

private:
  void fill();

  QSettings* m_settings;
  QStringList m_paths;
};

} // namespace Kelvaris::Viewer
