#pragma once

#include <Eigen/Core>

#include <string>
#include <utility>
#include <vector>

/// Numbers on the command line. All functions throw std::invalid_argument that quotes the text.
namespace Kelvaris::CommandLine {

/// "1,2,5", "-16:2:16" (first:step:last, the last included if the steps reach it), "0:63" (step 1), or such with commas
/// between. At most 65536 numbers.
std::vector<double> parseNumbers(const std::string& text);
/// The same for whole numbers.
std::vector<int> parseWholeNumbers(const std::string& text);
/// "-12.5:12.5".
std::pair<double, double> parseInterval(const std::string& text);
/// "0,25;5,25": pairs with semicolons between.
std::vector<Eigen::Vector2d> parsePoints(const std::string& text);
/// The texts between the separators; one empty text for an empty one.
std::vector<std::string> splitText(const std::string& text, char separator);

} // namespace Kelvaris::CommandLine
