#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Value.h"
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// A value as JSON text that keeps every kind apart. Text, Booleans, integers, doubles, lists and text-keyed dictionaries
/// stand as themselves (a double always with "." or "e"); the rest as an object with one key: {"$date": seconds since 2001},
/// {"$data": hexadecimal}, {"$uuid": …}, {"$url": …}, {"$decimal": "12.5"}, {"$float": 1.5}, {"$double": "inf"}, {"$set": […]}.
/// A key of a dictionary that begins with "$" gets a second one. Objects and dictionaries with other keys become null.
TESSARIN_API std::string typedJSON(Value const& value);
/// Appends a text as JSON.
TESSARIN_API void appendJSONText(std::string& out, std::string_view text);
/// Reads such a text; absent optional when it is none.
TESSARIN_API std::optional<Value> valueOfTypedJSON(std::string_view text);

} // namespace Tessarin
