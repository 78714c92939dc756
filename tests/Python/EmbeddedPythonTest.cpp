#include "Lib/PluginManager.h"
#include "Lib/PointCloud.h"
#include "Lib/SharedImageSet.h"
#include "Python/PythonPlugin.h"
#include "support/ErrorOf.h"
#include "support/LongWorkReports.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>

#ifdef __SANITIZE_ADDRESS__
/// Python goes on until the process ends, so what it holds then is no leak.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "detect_leaks=0";
}
#endif

namespace Kelvaris {
namespace {

PythonInterpreter* interpreter() {
  return dynamic_cast<PythonPlugin&>(PluginManager::get().load(PYTHON_PLUGIN)).interpreter();
}

std::string errorOf(const std::function<void()>& f) {
  return Tests::errorOf<std::runtime_error>(f);
}

class EmbeddedPython : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_NE(python, nullptr);
    if (!errorOf([&] { python->execute("import numpy"); }).empty()) GTEST_SKIP() << "Python has no numpy";
  }
  void run(const std::string& statements) { python->execute(statements); }
  double number(const std::string& expression) {
    const auto cloud = std::dynamic_pointer_cast<PointCloud>(
        python->evaluate("kelvaris.PointCloud([[" + expression + ", 0, 0]])", {}).at(0));
    return cloud->points()[0].x();
  }

  PythonInterpreter* python = interpreter();
};

std::shared_ptr<SharedImageSet> imagesOf(std::vector<short> samples, int width) {
  auto image = std::make_shared<TypedImage<short>>(width, static_cast<int>(samples.size()) / width);
  std::copy(samples.begin(), samples.end(), image->pointer());
  auto set = std::make_shared<SharedImageSet>();
  set->add(std::make_shared<SharedImage>(std::move(image)), 1.5);
  return set;
}

TEST_F(EmbeddedPython, WhatIsExecutedStaysForExpressions) {
  run("import kelvaris\ndef twice(x):\n  return factor * x\nfactor = 2");
  EXPECT_EQ(number("twice(21)"), 42.0);
  run("factor = 3");
  EXPECT_EQ(number("twice(2)"), 6.0);
  EXPECT_EQ(number("sum([factor * y for y in (1, 2)])"), 9.0);
  run("import kelvaris_host; assert kelvaris_host.factor == 3");
  EXPECT_EQ(interpreter(), python);
}

TEST_F(EmbeddedPython, ScriptsReportWithoutTheLock) {
  class Program : public Tests::LongWorkReports {
  public:
    explicit Program(PythonInterpreter& python) : m_python(python) {}
    bool report(const std::string& what, double fraction) override {
      std::thread([&] { m_python.execute("pass"); }).join();
      return LongWorkReports::report(what, fraction);
    }

  private:
    PythonInterpreter& m_python;
  } program(*python);
  run("import kelvaris\nassert kelvaris.report_progress('nobody asked for this')");
  program.granted = 2;
  const LongWork work(0.0, 0.5);
  run("assert kelvaris.report_progress('half', 0.5) and kelvaris.report_progress('somewhere')\n"
      "assert not kelvaris.report_progress('too far', 1)");
  EXPECT_EQ(program.fractions, (std::vector{0.25, -1.0, 0.5}));
  EXPECT_EQ(program.text, "too far");
}

TEST_F(EmbeddedPython, DataCrossesWithoutACopyAndBack) {
  run("import kelvaris, numpy");
  const auto images = imagesOf({1, 2, 3, 4, 5, 6}, 3);
  auto scatterers = std::make_shared<PointCloud>(std::vector<Eigen::Vector3d>{{1, 2, 3}, {4, 5, 6}}, "wires");
  scatterers->setWeights({{1.0, 0.5}});

  const auto same = python->evaluate("image", {{"image", images}});
  ASSERT_EQ(same.size(), 1u);
  EXPECT_EQ(same[0], images);
  run("def change(image, points):\n"
      "  array = image[0].array(writable=True)\n"
      "  assert array.shape == (1, 2, 3, 1) and image.timestamps == [1.5]\n"
      "  array += points.points[1, 2].astype('int16')\n"
      "  assert points.name == 'wires' and list(points.weights) == [1, 0.5] and len(points) == 2\n"
      "  return [kelvaris.SharedImageSet([array[0, :, :, 0].T]), None, points]");
  const auto results = python->evaluate("change(a, b)", {{"a", images}, {"b", scatterers}});
  EXPECT_EQ(images->get(0).mem()->valueAsDouble(2, 1, 0, 0), 12.0);
  ASSERT_EQ(results.size(), 3u);
  const auto transposed = std::dynamic_pointer_cast<SharedImageSet>(results[0]);
  ASSERT_NE(transposed, nullptr);
  EXPECT_EQ(transposed->get(0).mem()->valueAsDouble(1, 2, 0, 0), 12.0);
  EXPECT_EQ(results[1], nullptr);
  EXPECT_EQ(results[2], scatterers);

  EXPECT_TRUE(python->evaluate("None", {}).empty());
  EXPECT_TRUE(python->evaluate("()", {}).empty());
  EXPECT_TRUE(python->evaluate("nothing", {{"nothing", nullptr}}).empty());
  EXPECT_NE(errorOf([&] { python->evaluate("a", {}); }), "") << "variables are gone afterwards";
}

TEST_F(EmbeddedPython, WhatPythonMadeOutlivesPythonsOwnReferences) {
  const auto made = python->evaluate("__import__('kelvaris').SharedImageSet([__import__('numpy').full((64, 64), 7, "
                                     "'int16')])",
                                     {});
  run("import gc; gc.collect()");
  std::shared_ptr<SharedImage> image = std::dynamic_pointer_cast<SharedImageSet>(made.at(0))->shared(0);
  EXPECT_EQ(image->mem()->valueAsDouble(63, 63, 0, 0), 7.0);
  std::thread([gone = std::move(image)]() mutable { gone.reset(); }).join();
}

TEST_F(EmbeddedPython, ErrorsCarryPythonsText) {
  const struct {
    const char* text;
    bool isExpression;
    const char *first, *within;
  } cases[] = {
      {"import no_such_module_1", false, "ModuleNotFoundError: No module named 'no_such_module_1'", "line 1"},
      {"def f():\n  raise ValueError('wrong äöü')\nf()", false, "ValueError: wrong äöü", "line 2, in f"},
      {"x = = 1", false, "SyntaxError: invalid syntax (<host>, line 1)", ""},
      {"import sys; sys.exit(3)", false, "SystemExit: 3", ""},
      {"raise KeyboardInterrupt", false, "KeyboardInterrupt", ""},
      {"class E(Exception):\n  def __str__(self): raise E()\nraise E()", false, "E", ""},
      {"undefined_name", true, "NameError: name 'undefined_name' is not defined", ""},
      {"[None, 'x']", true, "The expression gave 'x' (str); expected data of the module kelvaris", ""},
      {"__import__('numpy').zeros((2, 2))", true, "The expression gave array([[0., 0.],", ""},
  };
  for (const auto& c : cases) {
    const std::string error =
        errorOf([&] { c.isExpression ? void(python->evaluate(c.text, {})) : python->execute(c.text); });
    EXPECT_TRUE(error.starts_with(c.first)) << error;
    EXPECT_NE(error.find(c.within), std::string::npos) << error;
  }
  for (const char* name : {"", "a b", "1a", "lambda"})
    EXPECT_THROW(python->evaluate("None", {{name, nullptr}}), std::invalid_argument) << name;
  EXPECT_NO_THROW(run("pass"));
}

TEST_F(EmbeddedPython, CallsComeFromAnyThread) {
  run("import threading, kelvaris\nlock, seen = threading.Lock(), []\n"
      "def note(image):\n"
      "  with lock:\n"
      "    seen.append(int(image[0].array()[0, 0, 0, 0]))\n"
      "    return image\n");
  std::atomic<int> failed = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        const auto images = imagesOf({static_cast<short>(50 * t + i)}, 1);
        if (python->evaluate("note(image)", {{"image", images}}).at(0) != images) ++failed;
        if (errorOf([&] { python->execute("1 / 0"); }).find("ZeroDivisionError") != 0) ++failed;
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failed, 0);
  run("assert sorted(seen) == list(range(200)), seen");
}

TEST_F(EmbeddedPython, ItGoesOnWhenThePluginIsLoadedAnew) {
  run("import numpy, kelvaris");
  PluginManager::get().unload("Kelvaris.Python");
  python = interpreter();
  ASSERT_NE(python, nullptr);
  run("import numpy, kelvaris; assert numpy.ones(3).sum() == 3");
  EXPECT_EQ(number("4"), 4.0);
}

/// What a fresh process prints that loads the plugin with these settings and executes the statements.
std::string probe(const std::string& settings, const std::string& statements) {
  const std::string command = "unset KELVARIS_PYTHON_HOME VIRTUAL_ENV PYTHONHOME; " + settings +
                              " '" PYTHON_PROBE "' '" PYTHON_PLUGIN "' \"" + statements + "\" 2>&1 </dev/null";
  std::FILE* const stream = popen(command.c_str(), "r");
  std::string output;
  char buffer[4096];
  for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof(buffer), stream)) > 0;)
    output.append(buffer, n);
  const int status = pclose(stream);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output;
  return output;
}

TEST(EmbeddedPythonSettings, ABrokenPythonIsAReasonAndNoEnd) {
  const Tests::TemporaryFolder folder;
  std::filesystem::create_directories(folder / "old");
  Tests::writeFile(folder / "old/pyvenv.cfg", "home = /usr/bin\nversion = 3.4.1\n");
  std::filesystem::create_directories(folder / "empty");
  std::filesystem::create_directories(folder / "hollow");
  Tests::writeFile(folder / "hollow/pyvenv.cfg", "home = /usr/bin\nversion = " PYTHON_VERSION ".9\n");
  const std::string at = folder.path().string();
  const struct {
    std::string settings;
    const char* reason;
  } cases[] = {
      {"KELVARIS_PYTHON_HOME='" + at + "/empty'", "neither a virtual environment (no pyvenv.cfg) nor an installation"},
      {"KELVARIS_PYTHON_HOME='" + at + "/old'", "a virtual environment of Python 3.4.1; expected one of Python"},
      {"KELVARIS_PYTHON_HOME='" + at + "/hollow'", "hollow/bin/python3"},
      {"PYTHONHOME='" + at + "/empty'", "Python can't be started: "},
      {"KELVARIS_LIBPYTHON='" + at + "/absent.so'", "absent.so: cannot open shared object file"},
  };
  for (const auto& c : cases) {
    const std::string output = probe(c.settings, "print(1)");
    EXPECT_NE(output.find("There is no Python interpreter: "), std::string::npos) << c.settings << "\n" << output;
    EXPECT_NE(output.find(c.reason), std::string::npos) << c.settings << "\n" << output;
    EXPECT_NE(output.find("interpreter: none\n"), std::string::npos) << c.settings << "\n" << output;
  }
}

TEST(EmbeddedPythonSettings, ChooseAVirtualEnvironment) {
  const Tests::TemporaryFolder folder;
  const std::string environment = folder / "env";
  if (std::system(("'" PYTHON_EXECUTABLE "' -m venv --without-pip '" + environment + "' >/dev/null 2>&1").c_str()) != 0)
    GTEST_SKIP() << "Python makes no virtual environments (Debian: python3-venv)";
  const std::string packages = environment + "/lib/python" PYTHON_VERSION "/site-packages";
  Tests::writeFile(packages + "/only_here.py", "answer = 42\n");
  for (const char* variable : {"KELVARIS_PYTHON_HOME", "VIRTUAL_ENV"})
    EXPECT_NE(probe(std::string(variable) + "='" + environment + "'", "import only_here; print(only_here.answer)")
                  .find("42\n"),
              std::string::npos)
        << variable;
  EXPECT_NE(probe("", "import only_here").find("No module named 'only_here'"), std::string::npos);
  // One that other programs may use is passed over.
  Tests::writeFile(environment + "/pyvenv.cfg", "home = /usr/bin\nversion = 3.4.1\n");
  const std::string output = probe("VIRTUAL_ENV='" + environment + "'", "print('runs')");
  EXPECT_NE(output.find("VIRTUAL_ENV is passed over"), std::string::npos) << output;
  EXPECT_NE(output.find("runs\n"), std::string::npos) << output;
}

TEST(EmbeddedPythonSettings, LeaveTheProcessItsSignalsAndStreams) {
  const std::string caught = "import signal; print('caught:', [int(line.split()[1], 16) >> 1 & 1 for line in "
                             "open('/proc/self/status') if line.startswith('SigCgt')])";
  EXPECT_CONTAINS(probe("", caught), "caught: [0]\n");
  EXPECT_NE(probe("", "import sys; sys.stdout.write('no end of line')").find("no end of line"), std::string::npos);
}

} // namespace
} // namespace Kelvaris
