#pragma once

#include "Lib/Data.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Kelvaris {

/// The Python interpreter of the process, with a namespace of the host's own. Both operations may be called from any
/// thread; they take Python's global lock for their duration, so the caller must hold no lock that Python code may wait
/// for. What Python raises, SystemExit included, becomes a std::runtime_error: its first line is the type and the text
/// ("ModuleNotFoundError: No module named 'pymust'"), the lines of the traceback follow.
class PythonInterpreter {
public:
  virtual ~PythonInterpreter() = default;

  /// Executes a text of statements. What it defines stays in the namespace.
  virtual void execute(const std::string& statements) = 0;

  /// The value of an expression, in which each of `variables` is an object of the module `kelvaris` (None for null)
  /// that shares the data. The variables are gone afterwards. A piece of data gives a list of one, a list or tuple one
  /// entry for each of its elements (null for None), None an empty list. Throws std::runtime_error as well for any
  /// other value, and std::invalid_argument for what is no name of a variable.
  virtual std::vector<std::shared_ptr<Data>>
  evaluate(const std::string& expression, const std::map<std::string, std::shared_ptr<Data>>& variables) = 0;
};

} // namespace Kelvaris
