#include "viewer/HelpDialogs.h"

#include "CUDA/Device.h"
#include "Gui/QtHelpers.h"

#include <QAction>
#include <QCoreApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <exception>
#include <memory>

namespace Kelvaris::Viewer {
namespace {

QString translated(const char* text) {
  return QCoreApplication::translate("HelpDialogs", text);
}

QString plain(QString text) {
  return text.remove('&').remove(QStringLiteral("..."));
}

QTreeWidgetItem& addRow(QTreeWidgetItem& parent, const QStringList& texts) {
  return *std::make_unique<QTreeWidgetItem>(&parent, texts).release();
}

void addShortcuts(QTreeWidgetItem& section, const QMenu& menu) {
  for (const QAction* action : menu.actions()) {
    if (action->menu()) addShortcuts(section, *action->menu());
    if (action->shortcut().isEmpty()) continue;
    const QString keys = QKeySequence::listToString(action->shortcuts(), QKeySequence::NativeText).replace("; ", ", ");
    addRow(section, {plain(action->text()), keys});
  }
}

} // namespace

void showShortcuts(QWidget& window) {
  auto& dialog = QtHelpers::make<QDialog>(&window);
  dialog.setAttribute(Qt::WA_DeleteOnClose);
  dialog.setWindowTitle(translated("Keyboard shortcuts"));
  auto& table = QtHelpers::make<QTreeWidget>(&dialog);
  table.setColumnCount(2);
  table.setHeaderLabels({translated("Action"), translated("Keys")});
  const auto* const main = qobject_cast<QMainWindow*>(&window);
  for (const QAction* action : main ? main->menuBar()->actions() : QList<QAction*>()) {
    if (!action->menu()) continue;
    auto section = std::make_unique<QTreeWidgetItem>(QStringList{plain(action->text())});
    addShortcuts(*section, *action->menu());
    if (section->childCount() > 0) table.addTopLevelItem(section.release());
  }
  QTreeWidgetItem& everywhere = addRow(*table.invisibleRootItem(), {translated("Everywhere")});
  addRow(everywhere, {translated("Menus"), translated("Alt and the underlined letter")});
  addRow(everywhere, {translated("To the next field, back"), "Tab, Shift+Tab"});
  table.expandAll();
  table.header()->setSectionResizeMode(QHeaderView::ResizeToContents);
  auto& buttons = QtHelpers::make<QDialogButtonBox>(&dialog, QDialogButtonBox::Close);
  QObject::connect(&buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
  auto& layout = QtHelpers::make<QVBoxLayout>(&dialog);
  layout.addWidget(&table);
  layout.addWidget(&buttons);
  dialog.resize(dialog.fontMetrics().horizontalAdvance('x') * 70, dialog.fontMetrics().height() * 36);
  dialog.show();
}

void showAbout(QWidget& window) {
  QString device;
  try {
    device = QString::fromStdString(CUDA::Device::current().name());
  } catch (const std::exception& error) {
    device = QString::fromUtf8(error.what());
  }
  auto& box = QtHelpers::make<QMessageBox>(
      &window, QMessageBox::NoIcon, translated("About the Kelvaris viewer"),
      translated("Kelvaris viewer %1\n\nLooks at ultrasound data, recorded or live, and at "
                 "what algorithms make of them.\n\nKernels run on: %2\nQt %3")
          .arg(QStringLiteral(KELVARIS_VERSION), device, QString::fromLatin1(qVersion())),
      QMessageBox::Close);
  box.setAttribute(Qt::WA_DeleteOnClose);
  box.setModal(false);
  box.show();
}

} // namespace Kelvaris::Viewer
