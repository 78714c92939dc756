#pragma once

#include "Lib/Algorithm.h"
#include "Lib/AlgorithmFactory.h"

#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kelvaris::Python {

namespace py = pybind11;

/// An algorithm with the data it was made for, which it keeps alive. A stream that it gives keeps both alive in turn,
/// since it is the algorithm that feeds the stream.
class AlgorithmObject {
public:
  /// Throws ValueError, naming what fits, for an unknown id and for data on which the algorithm doesn't work.
  AlgorithmObject(const std::string& id, std::vector<std::shared_ptr<Data>> data);

  const Algorithm::FactoryInfo& info() const { return m_state->algorithm->factoryInfo(); }
  /// The algorithm's id without the factory's name.
  std::string shortId() const;

  const std::vector<ParameterBase*>& parameters() const { return m_state->algorithm->parameters(); }
  py::dict values() const;
  /// Sets all or, where one is refused (TypeError, ValueError), none. An algorithm that makes a stream has no
  /// parameters of its own: the values are settings of the stream, as for configure().
  void set(const py::dict& values);
  /// Properties beyond the registered parameters, such as those of a stream that an algorithm opens.
  void configure(const py::dict& values);
  py::dict configuration() const;

  /// Runs with the GIL released and gives the output: one piece of data, a list of several, or None. `progress` is
  /// called as progress(text, step, steps) before each step; False cancels. What it raises, and what Ctrl-C raises in
  /// the main thread, cancels and is raised again. Throws Canceled and AlgorithmError with the logged reason, and
  /// RuntimeError if it is running already.
  py::object compute(const py::object& progress);

private:
  struct State {
    std::vector<std::shared_ptr<Data>> data;
    std::mutex settings; ///< reading and writing of parameters; waited for without the GIL
    std::mutex running;
    std::unique_ptr<Algorithm> algorithm; ///< last: it goes before its data
  };
  template <typename F> auto locked(F&& f) const;

  std::shared_ptr<State> m_state;
};

} // namespace Kelvaris::Python
