#pragma once

#include <QProcess>

#include <string>

#include <signal.h>
#include <sys/prctl.h>

namespace Kelvaris::Tests {

/// An X server without a screen (Xvfb), as long as this object lives.
class VirtualDisplay : private QProcess {
public:
  VirtualDisplay() {
    setStandardErrorFile(nullDevice());
    start("Xvfb", {"-displayfd", "1", "-screen", "0", "1600x1200x24", "-nolisten", "tcp"});
    // It writes its number once it can be talked to.
    while (!m_number.endsWith('\n') && waitForReadyRead())
      m_number += readAllStandardOutput();
  }
  ~VirtualDisplay() override {
    terminate();
    waitForFinished();
  }

  /// For DISPLAY.
  std::string name() const { return (":" + m_number.trimmed()).toStdString(); }
  /// Why there is none; empty if there is.
  std::string problem() const {
    if (m_number.endsWith('\n')) return {};
    return error() == FailedToStart ? "Xvfb is not installed (Debian: apt-get install xvfb)" : "Xvfb did not start";
  }

protected:
  void setupChildProcess() override { prctl(PR_SET_PDEATHSIG, SIGTERM); } // also when a test crashes

private:
  QByteArray m_number;
};

} // namespace Kelvaris::Tests
