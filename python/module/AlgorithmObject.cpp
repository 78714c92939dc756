#include "module/AlgorithmObject.h"

#include "Core/Progress.h"
#include "Lib/FactoryRegistry.h"
#include "Python/DataCast.h"
#include "Stream/StreamIoAlgorithm.h"
#include "module/Errors.h"
#include "module/Gil.h"
#include "module/Log.h"
#include "module/PropertiesDict.h"
#include "module/Streams.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <exception>
#include <utility>

namespace Kelvaris::Python {
namespace {

std::string withoutFactory(const std::string& id) {
  return id.substr(id.find('.') + 1);
}

AlgorithmFactory::Descriptor findDescriptor(const std::string& id) {
  std::vector<AlgorithmFactory::Descriptor> found;
  std::vector<std::string> ids;
  for (AlgorithmFactory::Descriptor& descriptor : FactoryRegistry::get().algorithmDescriptors()) {
    ids.push_back(withoutFactory(descriptor.id));
    if (descriptor.id == id) return descriptor;
    if (ids.back() == id) found.push_back(std::move(descriptor));
  }
  if (found.size() == 1) return found.front();
  if (found.size() > 1)
    throw py::value_error(
        fmt::format("Several algorithms have the id \"{}\": write {} or {}", id, found[0].id, found[1].id));
  if (ids.empty())
    throw py::value_error(
        fmt::format("There is no algorithm \"{}\": no plugin is loaded yet (see load_plugins())", id));
  throw py::value_error(fmt::format("There is no algorithm \"{}\"; there are: {}", id, fmt::join(ids, ", ")));
}

std::string describe(const std::vector<std::shared_ptr<Data>>& data) {
  std::vector<std::string> texts;
  for (const auto& element : data)
    texts.push_back(py::cast<std::string>(py::repr(toPython(element))));
  return texts.empty() ? "no data" : fmt::format("{}", fmt::join(texts, ", "));
}

/// Passes steps on to Python, and what Python raises back to the work as a cancellation.
class Reporter {
public:
  explicit Reporter(const py::object& callback) : m_callback(callback.is_none() ? nullptr : callback.ptr()) {
    progress.onStep = [this](const ProgressTask& task) { report(task); };
  }

  Progress progress;
  std::exception_ptr raised; ///< touched with the GIL held

private:
  void report(const ProgressTask& task) {
    const py::gil_scoped_acquire gil;
    if (raised) return;
    try {
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      if (!m_callback) return;
      const py::object answer = py::handle(m_callback)(task.text(), task.step(), task.steps());
      if (answer.is(py::bool_(false))) progress.cancel();
    } catch (...) {
      raised = std::current_exception();
      progress.cancel();
    }
  }

  PyObject* m_callback; ///< the caller's
};

} // namespace

AlgorithmObject::AlgorithmObject(const std::string& id, std::vector<std::shared_ptr<Data>> data) {
  auto state = std::make_unique<State>();
  state->data = std::move(data);
  DataList list;
  for (const auto& element : state->data)
    list.add(element.get());
  const AlgorithmFactory::Descriptor descriptor = findDescriptor(id);
  state->algorithm = withoutGil([&] { return descriptor.create(list); });
  if (!state->algorithm) {
    std::vector<std::string> fitting;
    for (const auto& other : FactoryRegistry::get().compatibleDescriptors(list))
      fitting.push_back(withoutFactory(other.id));
    throw py::value_error(fmt::format("{} does not work on this data ({}); what does: {}", withoutFactory(id),
                                      describe(state->data),
                                      fitting.empty() ? "nothing" : fmt::format("{}", fmt::join(fitting, ", "))));
  }
  m_state = sharedWithoutGil(std::move(state), nullptr);
}

std::string AlgorithmObject::shortId() const {
  return withoutFactory(info().id);
}

template <typename F> auto AlgorithmObject::locked(F&& f) const {
  return withoutGil([&] {
    const std::scoped_lock lock(m_state->settings);
    return f();
  });
}

py::dict AlgorithmObject::values() const {
  const auto texts = locked([&] {
    std::vector<std::string> all;
    for (const ParameterBase* parameter : parameters())
      all.push_back(parameter->text());
    return all;
  });
  py::dict dictionary;
  for (std::size_t i = 0; i < texts.size(); ++i)
    dictionary[py::str(parameters()[i]->name())] = valueOf(*parameters()[i], texts[i]);
  return dictionary;
}

void AlgorithmObject::set(const py::dict& values) {
  if (dynamic_cast<StreamIoAlgorithm*>(m_state->algorithm.get())) return configure(values);
  Properties properties;
  for (const auto& [key, value] : values) {
    const auto name = py::cast<std::string>(py::str(key));
    const ParameterBase* parameter = m_state->algorithm->parameter(name.c_str());
    if (!parameter) {
      std::vector<std::string> names;
      for (const ParameterBase* known : parameters())
        names.push_back(known->name());
      throw py::value_error(fmt::format("{} has no parameter \"{}\"; it has {}", shortId(), name,
                                        names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "))));
    }
    properties.setParam(name, textFor(*parameter, py::reinterpret_borrow<py::object>(value), shortId()));
  }
  const LoggedReasons reasons;
  locked([&] { m_state->algorithm->configure(&properties); });
  if (reasons.anyError()) throw py::value_error(fmt::format("{}: {}", shortId(), reasons.text()));
}

void AlgorithmObject::configure(const py::dict& values) {
  const Properties properties = propertiesOf(values);
  const LoggedReasons reasons;
  locked([&] { m_state->algorithm->configure(&properties); });
  if (reasons.anyError()) throw py::value_error(fmt::format("{}: {}", shortId(), reasons.text()));
}

py::dict AlgorithmObject::configuration() const {
  Properties properties;
  locked([&] { m_state->algorithm->configuration(&properties); });
  return dictOf(properties);
}

py::object AlgorithmObject::compute(const py::object& progress) {
  Reporter reporter(progress);
  const LoggedReasons reasons(false);
  std::unique_lock running(m_state->running, std::try_to_lock);
  if (!running) throw std::runtime_error(fmt::format("{} is running already, on another thread", shortId()));
  Algorithm& algorithm = *m_state->algorithm;
  OwningDataList output = withoutGil([&] {
    algorithm.setProgress(&reporter.progress);
    struct Detach {
      Algorithm& algorithm;
      ~Detach() { algorithm.setProgress(nullptr); }
    } const detach{algorithm};
    algorithm.compute();
    return algorithm.takeOutput();
  });
  if (reporter.raised) std::rethrow_exception(std::exchange(reporter.raised, nullptr));
  switch (algorithm.status()) {
  case Algorithm::Success:
    break;
  case Algorithm::Canceled:
    throw Canceled(fmt::format("{} was cancelled", shortId()));
  default:
    throw AlgorithmError(fmt::format("{} failed with status {}: {}", shortId(), algorithm.status(), reasons.text()));
  }
  py::list results;
  while (auto data = output.extract<Data>()) {
    const bool isStream = data->kind() >= Data::ImageStreamKind;
    const auto shared = isStream ? sharedWithoutGil(std::move(data), m_state) : std::shared_ptr(std::move(data));
    closeAtExit(shared);
    results.append(toPython(shared));
  }
  if (results.empty()) return py::none();
  return results.size() == 1 ? py::object(results[0]) : py::object(results);
}

} // namespace Kelvaris::Python
