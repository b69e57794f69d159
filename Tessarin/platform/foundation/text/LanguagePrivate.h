#pragma once
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <compare>
#include <string>
#include <string_view>

/// What ICU knows of languages, in terms of UTF-8.
namespace Tessarin::language {

/// The user's locale for a category, "LC_COLLATE", in ICU's spelling: LC_ALL, else that, else LANG. Empty for C, and for none.
std::string localeOf(char const* category);

/// The text with each of its well-formed parts changed, and the bytes between them as they are.
std::string eachWellFormed(std::string_view text, FunctionRef<std::string(std::string_view)> changed);

// Of well-formed texts; what cannot be done leaves a text as it is.
std::string normalized(std::string_view text, bool isCompatible, bool isComposed);
std::string capitalized(std::string_view text, std::string const& locale);

/// Whether `part` occurs, as the user's order of texts has it without case and accents.
bool contains(std::string_view text, std::string_view part);
/// The user's order of texts, with numbers by their value.
std::strong_ordering compareNaturally(std::string_view a, std::string_view b);

} // namespace Tessarin::language
