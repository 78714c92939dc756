#include "viewer/AlgorithmMenu.h"

#include <QAction>
#include <QSet>

namespace Kelvaris::Viewer {
namespace {

QStringList textsOf(const QMenu& menu) {
  QStringList texts;
  for (const QAction* action : menu.actions())
    texts.append(action->text());
  return texts;
}

/// The submenu of that title, made if there is none.
QMenu& submenu(QMenu& menu, const QString& title) {
  for (const QAction* action : menu.actions())
    if (action->menu() && action->text().remove('&') == title) return *action->menu();
  QMenu* const added = menu.addMenu(withMnemonic(title, textsOf(menu)));
  added->setToolTipsVisible(true);
  return *added;
}

QString quoted(const std::string& name) {
  return QStringLiteral("“%1”").arg(QString::fromStdString(name));
}

} // namespace

QString withMnemonic(const QString& text, const QStringList& texts) {
  QSet<QChar> taken;
  for (const QString& other : texts)
    if (const auto mark = other.indexOf('&'); mark >= 0 && mark + 1 < other.size())
      taken.insert(other[mark + 1].toLower());
  const QString escaped = QString(text).replace('&', "&&");
  for (int i = 0; i < escaped.size(); ++i)
    if (escaped[i].isLetterOrNumber() && !taken.contains(escaped[i].toLower()))
      return escaped.left(i) + '&' + escaped.mid(i);
  return escaped;
}

AlgorithmMenu::AlgorithmMenu(const std::vector<AlgorithmFactory::Descriptor>& descriptors, QWidget* parent)
    : QMenu(parent) {
  setToolTipsVisible(true);
  for (const AlgorithmFactory::Descriptor& descriptor : descriptors) {
    QMenu* menu = this;
    const QStringList levels = QString::fromStdString(descriptor.category).split(';');
    for (int level = 0; level + 1 < levels.size(); ++level)
      menu = &submenu(*menu, levels[level]);
    m_entries.push_back({descriptor, addEntry(*menu, descriptor), descriptor.isCompatible({})});
  }
  setSelection({}, {}, 0);
}

void AlgorithmMenu::addSources(QMenu& menu) {
  for (const Entry& entry : m_entries)
    if (entry.takesNoData)
      addEntry(menu, entry.descriptor)
          ->setStatusTip(tr("Put new data of %1 on the data list").arg(quoted(entry.descriptor.displayName())));
}

QAction* AlgorithmMenu::addEntry(QMenu& menu, const AlgorithmFactory::Descriptor& descriptor) {
  const QString name = QString::fromStdString(descriptor.displayName());
  QAction* const action = menu.addAction(withMnemonic(name, textsOf(menu)));
  action->setObjectName(QString::fromStdString(descriptor.id));
  if (descriptor.attributes & AlgorithmFactory::Descriptor::Expert) {
    QFont font = action->font();
    font.setItalic(true);
    action->setFont(font);
  }
  connect(action, &QAction::triggered, this, [this, id = QString::fromStdString(descriptor.id)] { Q_EMIT chosen(id); });
  return action;
}

void AlgorithmMenu::setSelection(const std::function<bool(const AlgorithmFactory::Descriptor&)>& fits,
                                 const QString& text, int count) {
  for (const Entry& entry : m_entries) {
    const bool enabled = entry.takesNoData || (fits && fits(entry.descriptor));
    const QString name = quoted(entry.descriptor.displayName());
    QString tip;
    if (entry.takesNoData)
      tip = tr("%1 needs no data; it puts new data on the data list").arg(name);
    else if (enabled)
      tip = tr("Apply %1 to %2").arg(name, text);
    else if (count == 0)
      tip = tr("%1 needs data: select an entry of the data list").arg(name);
    else if (count > 1)
      tip = tr("%1 doesn't work on several entries of the data list at once: select one").arg(name);
    else
      tip = tr("%1 doesn't work on %2: kind, channels or components of the data don't fit").arg(name, text);
    if (entry.descriptor.attributes & AlgorithmFactory::Descriptor::Expert) tip += tr(" (for experts)");
    entry.action->setEnabled(enabled);
    entry.action->setStatusTip(tip);
    entry.action->setToolTip(tip);
  }
}

} // namespace Kelvaris::Viewer
