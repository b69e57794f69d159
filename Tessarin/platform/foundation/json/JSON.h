#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/Value.h"
#include <string>
#include <string_view>

/// JSON text to values and back. An object becomes a Dictionary (of two equal keys the last counts), an array a List, null
/// an absent value, a number without "." and exponent an Integer where it fits 64 bits, any other number a Double. Any thread.
///
///     auto const books = JSON::contentsOfURL(url); // kept: list() refers into it
///     for (auto const& book : books.list()) show(book.dictionary());
///     JSON::forEachElement(url, [&](Value book) { import(book.dictionary()); });
namespace Tessarin::JSON {

/// Throws ErrorException (NSFormatErrorDomain) for ill-formed text, text that is not UTF-8, anything behind the value, and
/// nesting deeper than 500.
TESSARIN_API Value parse(std::string_view text);
/// The same from a file; throws ErrorException with an errno too.
TESSARIN_API Value contentsOfURL(NSURL const& url);

/// Hands the elements of the array in `text`, or in the file, to `each`, one after the other, so that they need not exist at
/// once: the way to import many. Throws as above; elements before an error have been handed over by then.
TESSARIN_API void forEachElement(std::string_view text, FunctionRef<void(Value)> each);
TESSARIN_API void forEachElement(NSURL const& url, FunctionRef<void(Value)> each);

/// The value as JSON text without blanks. Throws ErrorException for what JSON cannot say: dates, data, URLs, UUIDs, objects,
/// sets, keys that are no texts, numbers that are not finite, and nesting deeper than 500.
TESSARIN_API std::string text(Value const& value);

} // namespace Tessarin::JSON
