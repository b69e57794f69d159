#pragma once
#include <initializer_list>
#include <string>
#include <string_view>

// Texts of numbers in braces: "{1, 2}", "{{0, 0}, {10, 20}}".
namespace Tessarin::geometry {

/// The shape with each "#" replaced by the next number: the shortest text that reads back, "2" for a whole one.
std::string textOf(std::string_view shape, std::initializer_list<double> numbers);

/// Reads into `numbers` where `shape` has "#". Blanks in either do not matter. False when the text has another shape, or a number
/// that is none or does not fit; what `numbers` then lead to is unspecified.
bool readText(std::string_view text, std::string_view shape, std::initializer_list<double*> numbers);

} // namespace Tessarin::geometry
