#include "viewer/LogPanel.h"

#include "support/ExpectedLog.h"
#include "viewer/LogModel.h"

#include <QApplication>
#include <QClipboard>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

#include <thread>

namespace Kelvaris::Viewer {
namespace {

TEST(LogPanelTest, CountsWhatIsSaidOverAndOver) {
  const Tests::ExpectedLog expected;
  LogModel log;
  LogPanel panel(log);
  const auto copied = [&] {
    for (QPushButton* button : panel.findChildren<QPushButton*>())
      if (button->text() == "Copy") QTest::mouseClick(button, Qt::LeftButton);
    QStringList lines = QApplication::clipboard()->text().split('\n');
    for (QString& line : lines)
      line = line.section('\t', 1); // without the time
    return lines;
  };
  // Two steps fail in turn, on their threads, in several goes.
  for (int go = 0; go < 3; ++go) {
    std::thread([] {
      for (int i = 0; i < 20; ++i) {
        Log::error("A", "no device");
        Log::error("B", "no memory");
      }
    }).join();
    QCoreApplication::processEvents();
  }
  EXPECT_EQ(copied(), QStringList({"Error\tA\tx 60\tno device", "Error\tB\tx 60\tno memory"}));
  const QString time = log.index(0, LogModel::Time).data().toString();
  ASSERT_TRUE(QTest::qWaitFor([&] { return QTime::currentTime().toString("HH:mm:ss.zzz") != time; }));
  Log::error("A", "no device");
  // What differs in anything is a line of its own.
  Log::warning("A", "no device");
  Log::error("C", "no device");
  QCoreApplication::processEvents();
  EXPECT_EQ(copied(), QStringList({"Error\tA\tx 61\tno device", "Error\tB\tx 60\tno memory", "Warning\tA\t\tno device",
                                   "Error\tC\t\tno device"}));
  EXPECT_NE(log.index(0, LogModel::Time).data().toString(), time) << "that of the last one";
}

} // namespace
} // namespace Kelvaris::Viewer
