#pragma once
#include "Tessarin/platform/foundation/values/UTF8Private.h"
#include "Tessarin/platform/runtime/Value.h"
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Values as TOML, each kind kept exactly. What TOML has no kind for is a table of one key that names the kind:
///
///     ratio = { float = 0.1 }          one of `float`, `data` (Base64), `uuid`, `url`, `decimal`
///     start = { seconds-since-2001 = 1e300 }    a date that no TOML date says exactly
///     name = { text = "/w==" }         text that is not UTF-8, in Base64
///     odd = { dictionary = { float = 0.1 } }    a dictionary that would read as one of these
namespace Tessarin::defaults {

/// Why a value cannot be kept, as the end of a sentence: for objects, sets, dictionaries with other keys than texts, absent
/// elements, and more than a hundred levels. Empty when it can.
std::string_view obstacle(Value const& value);

/// The value, and the key, as they stand on either side of "=". The value has no obstacle.
std::string tomlValue(Value const& value);
std::string tomlKey(std::string_view key);
/// What a TOML document says, in its order. Throws ErrorException (NSFormatErrorDomain, the code is the line). Dates without
/// an offset are in the user's zone; a time without a date is text.
Dictionary dictionaryFromTOML(std::string_view text);

/// What a single statement names: `a.b = 1`, `[a.b]`, or `[[a.b]]`, an element of a list of sections. Blank lines and comments
/// name nothing.
struct StatementName {
    enum class Kind { Value, Section, Element } kind;
    std::vector<std::string> parts;
};
/// Absent for what is not one well-formed statement.
std::optional<StatementName> statementName(std::string_view statement);

/// Equal, and of the same kinds: 1 is not 1.0, and 0.0 not -0.0.
bool isSame(Value const& a, Value const& b);

} // namespace Tessarin::defaults
