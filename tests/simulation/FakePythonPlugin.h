#pragma once

#include "Python/PythonPlugin.h"

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Kelvaris::Tests {

/// An interpreter that writes down what it is given and answers as a test wants.
class FakePython : public PythonInterpreter {
public:
  using Variables = std::map<std::string, std::shared_ptr<Data>>;
  using Results = std::vector<std::shared_ptr<Data>>;

  std::vector<std::string> executed;
  std::function<void()> importing; ///< called with each import
  std::string failing;             ///< statements that hold this text fail; none if it is empty
  std::vector<std::string> evaluated;
  Variables variables; ///< of the last evaluation
  std::function<Results()> answer;

  void execute(const std::string& statements) override {
    executed.push_back(statements);
    if (importing && statements.starts_with("import ")) importing();
    if (!failing.empty() && statements.find(failing) != std::string::npos)
      throw std::runtime_error("NoWay: " + failing);
  }
  Results evaluate(const std::string& expression, const Variables& given) override {
    evaluated.push_back(expression);
    variables = given;
    return answer();
  }
};

/// What brings it into the host, as a library of its own (FAKE_PYTHON_PLUGIN).
class FakePythonPlugin : public PythonPlugin {
public:
  bool hasInterpreter = true;
  FakePython python;

  std::string author() const override { return "tests"; }
  std::string description() const override { return "for tests"; }
  int init() override { return 0; }
  PythonInterpreter* interpreter() override { return hasInterpreter ? &python : nullptr; }
};

} // namespace Kelvaris::Tests
