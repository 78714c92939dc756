#include "viewer/Session.h"

#include <fmt/format.h>

#include <set>
#include <stdexcept>

namespace Kelvaris::Viewer {
namespace {

constexpr const char* kFormat = "kelvaris-session";
constexpr int kVersion = 1;
constexpr int kLargestId = 1'000'000'000;

/// Leaves `value` alone where the key is missing. Throws for a text that is no such value.
template <typename T> void read(const Properties& properties, const char* key, T& value, const std::string& where) {
  std::string text;
  if (properties.param(key, text) && !PropertyText::fromText(text, value))
    throw std::runtime_error(fmt::format("{} has the {} \"{}\", which is no such value", where, key, text));
}

Session::Item readItem(const Properties& properties, const std::filesystem::path& folder) {
  Session::Item item;
  std::string file;
  read(properties, "id", item.id, "An item");
  const std::string where = fmt::format("The item {}", item.id);
  read(properties, "name", item.name, where);
  read(properties, "file", file, where);
  read(properties, "own", item.own, where);
  if (item.id < 1) throw std::runtime_error(fmt::format("{} has no id of 1 or more", where));
  if (file.empty()) throw std::runtime_error(fmt::format("{} has no file", where));
  item.file = (folder / file).lexically_normal();
  return item;
}

Session::Step readStep(const Properties& properties) {
  Session::Step step;
  read(properties, "algorithm", step.algorithm, "A step");
  if (step.algorithm.empty()) throw std::runtime_error("A step names no algorithm");
  const std::string where = fmt::format("The step {}", step.algorithm);
  read(properties, "inputs", step.inputs, where);
  read(properties, "output", step.output, where);
  read(properties, "outputName", step.outputName, where);
  read(properties, "run", step.run, where);
  read(properties, "stream", step.stream, where);
  if (step.output < 0) throw std::runtime_error(fmt::format("{} has the output {}", where, step.output));
  if (const Properties* configuration = properties.findSubProperties("configuration"))
    step.configuration = *configuration;
  return step;
}

} // namespace

Properties Session::toProperties(const std::filesystem::path& folder) const {
  Properties properties;
  properties.setParam("format", kFormat);
  properties.setParam("version", kVersion);
  for (const Item& item : items) {
    Properties& p = properties.addSubProperties("item");
    p.setParam("id", item.id);
    p.setParam("name", item.name);
    p.setParam("file", item.file.lexically_proximate(folder).generic_string());
    if (item.own) p.setParam("own", true);
  }
  for (const Step& step : steps) {
    Properties& p = properties.addSubProperties("step");
    p.setParam("algorithm", step.algorithm);
    p.setParam("inputs", step.inputs);
    p.setParam("output", step.output);
    p.setParam("outputName", step.outputName);
    p.setParam("run", step.run);
    if (!step.stream.empty()) p.setParam("stream", step.stream);
    p.addSubProperties("configuration") = step.configuration;
  }
  if (!view.empty()) properties.addSubProperties("view") = view;
  return properties;
}

Session Session::fromProperties(const Properties& properties, const std::filesystem::path& folder) {
  std::string format;
  int version = 0;
  properties.param("format", format);
  if (format != kFormat)
    throw std::runtime_error(fmt::format("It is no session (its format is \"{}\", expected \"{}\")", format, kFormat));
  read(properties, "version", version, "It");
  if (version != kVersion)
    throw std::runtime_error(fmt::format("It has version {} of the format, only {} is known", version, kVersion));

  Session session;
  std::set<int> ids;
  const auto add = [&](int id) {
    if (id > kLargestId)
      throw std::runtime_error(fmt::format("An item has the id {}, at most {} is known", id, kLargestId));
    if (!ids.insert(id).second) throw std::runtime_error(fmt::format("Two items have the id {}", id));
  };
  for (const Properties* item : properties.allSubProperties("item")) {
    session.items.push_back(readItem(*item, folder));
    add(session.items.back().id);
  }
  for (const Properties* p : properties.allSubProperties("step")) {
    const Step& step = session.steps.emplace_back(readStep(*p));
    for (const int input : step.inputs)
      if (!ids.contains(input))
        throw std::runtime_error(fmt::format("The step {} takes item {}, which is neither a file's nor made by a step "
                                             "before it",
                                             step.algorithm, input));
    if (step.output) add(step.output);
  }
  if (const Properties* view = properties.findSubProperties("view")) session.view = *view;
  return session;
}

} // namespace Kelvaris::Viewer
