#include "viewer/HelpDialogs.h"

#include "CUDA/Device.h"

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

namespace Kelvaris::Viewer {
namespace {

QString translated(const char* text) {
  return QCoreApplication::translate("HelpDialogs", text);
}

QString plain(QString text) {
  return text.remove('&').remove(QStringLiteral("..."));
}

void addShortcuts(QTreeWidgetItem& section, const QMenu& menu) {
  for (const QAction* action : menu.actions()) {
    if (action->menu()) addShortcuts(section, *action->menu());
    if (action->shortcut().isEmpty()) continue;
    const QString keys = QKeySequence::listToString(action->shortcuts(), QKeySequence::NativeText).replace("; ", ", ");
    new QTreeWidgetItem(&section, {plain(action->text()), keys});
  }
}

} // namespace

void showShortcuts(QWidget& window) {
  auto* const dialog = new QDialog(&window);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setWindowTitle(translated("Keyboard shortcuts"));
  auto* const table = new QTreeWidget(dialog);
  table->setColumnCount(2);
  table->setHeaderLabels({translated("Action"), translated("Keys")});
  const auto* const main = qobject_cast<QMainWindow*>(&window);
  for (const QAction* action : main ? main->menuBar()->actions() : QList<QAction*>()) {
    if (!action->menu()) continue;
    auto* const section = new QTreeWidgetItem(table, {plain(action->text())});
    addShortcuts(*section, *action->menu());
    if (section->childCount() == 0) delete section;
  }
  auto* const everywhere = new QTreeWidgetItem(table, {translated("Everywhere")});
  new QTreeWidgetItem(everywhere, {translated("Menus"), translated("Alt and the underlined letter")});
  new QTreeWidgetItem(everywhere, {translated("To the next field, back"), "Tab, Shift+Tab"});
  table->expandAll();
  table->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
  auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
  QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
  auto* const layout = new QVBoxLayout(dialog);
  layout->addWidget(table);
  layout->addWidget(buttons);
  dialog->resize(dialog->fontMetrics().horizontalAdvance('x') * 70, dialog->fontMetrics().height() * 36);
  dialog->show();
}

void showAbout(QWidget& window) {
  QString device;
  try {
    device = QString::fromStdString(CUDA::Device::current().name());
  } catch (const std::exception& error) {
    device = QString::fromUtf8(error.what());
  }
  auto* const box =
      new QMessageBox(QMessageBox::NoIcon, translated("About the Kelvaris viewer"),
                      translated("Kelvaris viewer %1\n\nLooks at ultrasound data, recorded or live, and at "
                                 "what algorithms make of them.\n\nKernels run on: %2\nQt %3")
                          .arg(QStringLiteral(KELVARIS_VERSION), device, QString::fromLatin1(qVersion())),
                      QMessageBox::Close, &window);
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setModal(false);
  box->show();
}

} // namespace Kelvaris::Viewer
