#include "viewer/AlgorithmMenu.h"

#include "Gui/QtHelpers.h"

#include <QAction>
#include <QKeySequence>

namespace Kelvaris::Viewer {
namespace {

/// The text of a new entry, with a letter or digit that no other entry of the menu has for its mnemonic.
QString textFor(const QMenu& menu, const QString& name) {
  QString taken;
  for (const QAction* action : menu.actions())
    if (const QKeySequence keys = QKeySequence::mnemonic(action->text()); !keys.isEmpty())
      taken += QChar(static_cast<char16_t>(keys[0])).toLower(); // without the bits of Alt
  return QtHelpers::withMnemonic(name, taken, true);
}

/// The submenu of that title, made if there is none.
QMenu& submenu(QMenu& menu, const QString& title) {
  for (const QAction* action : menu.actions())
    if (action->menu() && action->text().remove('&') == QString(title).remove('&')) return *action->menu();
  QMenu* const added = menu.addMenu(textFor(menu, title));
  added->setToolTipsVisible(true);
  return *added;
}

QString quoted(const std::string& name) {
  return QStringLiteral("“%1”").arg(QString::fromStdString(name));
}

} // namespace

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
  QAction* const action = menu.addAction(textFor(menu, name));
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
