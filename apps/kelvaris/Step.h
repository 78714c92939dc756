#pragma once

#include "Lib/AlgorithmFactory.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::CommandLine {

/// One processing step as a user asks for it: an algorithm and values of its parameters, both not yet checked.
struct Step {
  std::string id;
  std::vector<std::pair<std::string, std::string>> values;
  bool operator==(const Step&) const = default;
};

/// Reads "ID" or "ID:key=value,key=value". Commas inside quotes or brackets belong to the value; quotes or brackets
/// around a whole value are taken off. Throws std::invalid_argument.
Step parseStep(const std::string& text);

/// Steps as XML: <chain><step id="LogCompression"><param key="dynamicRange">40</param></step>...</chain>
std::vector<Step> parseChain(const std::string& xml, const std::string& name);
/// Throws std::runtime_error with the file's name.
std::vector<Step> readChain(const std::filesystem::path& path);
std::string chainToXml(const std::vector<Step>& steps);

/// The algorithm of that id, with or without the factory's name in front. Throws std::invalid_argument, naming what
/// there is, for an unknown or an ambiguous id.
AlgorithmFactory::Descriptor findAlgorithm(const std::string& id);

/// The step's values as `algorithm` reads them: vectors may be written 512x512 or [512, 512], enums by their display
/// text or their index, and the unit that forms show may follow a number. Throws std::invalid_argument, naming what
/// there is, for an unknown key or a text that is no value of the parameter.
Properties settingsFor(const Step& step, const Algorithm& algorithm);

/// One line a parameter: name, value and unit, what it takes, its default.
std::string describeParameters(const Algorithm& algorithm);

} // namespace Kelvaris::CommandLine
