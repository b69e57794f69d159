#pragma once
#include "Tessarin/platform/foundation/predicates/KeyPath.h"

namespace Tessarin {

/// A constant as a predicate format writes it: texts in quotes, lists in braces, Booleans as YES and NO. What has no literal
/// form (dates, objects) is written as its description.
std::string formatOfValue(Value const& value);
/// A key path as a format writes it; components that would read as keywords are marked with "#".
std::string formatOfKeyPath(KeyPath const& path);

/// Whether the word stands for the infinite number: "inf", in any case of its letters.
bool isInfinity(std::string_view word);
/// Whether the word has a meaning of its own in a format, in any case of its letters.
bool isFormatKeyword(std::string_view word);

} // namespace Tessarin
