#include "viewer/RecentFiles.h"

#include <QAction>
#include <QFileInfo>
#include <QSettings>

namespace Kelvaris::Viewer {
namespace {

constexpr int kKept = 9;
const char* const kKey = "recentFiles";

} // namespace

RecentFiles::RecentFiles(QSettings* settings, QWidget* parent) : QMenu(parent), m_settings(settings) {
  setToolTipsVisible(true);
  if (m_settings) m_paths = m_settings->value(kKey).toStringList();
  fill();
}

void RecentFiles::add(const QString& path) {
  const QString absolute = QFileInfo(path).absoluteFilePath();
  m_paths.removeAll(absolute);
  m_paths.prepend(absolute);
  m_paths = m_paths.mid(0, kKept);
  if (m_settings) m_settings->setValue(kKey, m_paths);
  fill();
}

void RecentFiles::fill() {
  clear();
  for (int i = 0; i < m_paths.size(); ++i) {
    const QString path = m_paths[i];
    QAction* const action =
        addAction(QStringLiteral("&%1 %2").arg(i + 1).arg(QFileInfo(path).fileName().replace('&', "&&")));
    action->setToolTip(path);
    action->setStatusTip(path);
    connect(action, &QAction::triggered, this, [this, path] { Q_EMIT chosen(path); });
  }
  setEnabled(!m_paths.isEmpty());
}

} // namespace Kelvaris::Viewer
