#pragma once
#include <string>
#include <string_view>

namespace Tessarin::markup {

/// What stands for control characters: HTML allows none but blanks; Pango's parser takes them by number.
enum class Controls { Replaced, ByNumber };

/// Appends a text in which nothing begins a tag or an entity, or ends a quoted attribute; U+FFFD for what is not UTF-8, and for
/// NUL.
void appendEscaped(std::string& out, std::string_view text, Controls controls);

/// The number without an exponent, at most three digits behind the point, the same in every locale.
std::string decimal(double number);

} // namespace Tessarin::markup
