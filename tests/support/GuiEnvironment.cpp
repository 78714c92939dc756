#include <QApplication>

#include <gtest/gtest.h>

#include <memory>

#ifdef __SANITIZE_ADDRESS__
/// Qt's platform without a display keeps its screen to the end.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libqoffscreen.so\n";
}
#endif

namespace {

/// The application that all widgets of a test program live in.
class GuiEnvironment : public ::testing::Environment {
public:
  void SetUp() override {
    if (!qEnvironmentVariableIsSet("DISPLAY") && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
      qputenv("QT_QPA_PLATFORM", "offscreen");
    m_application = std::make_unique<QApplication>(m_count, m_arguments);
  }
  void TearDown() override { m_application.reset(); }

private:
  char m_name[5] = "test";
  char* m_arguments[2] = {m_name, nullptr};
  int m_count = 1;
  std::unique_ptr<QApplication> m_application;
};

[[maybe_unused]] const auto* const g_environment = ::testing::AddGlobalTestEnvironment(new GuiEnvironment);

} // namespace
