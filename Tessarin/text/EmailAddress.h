#pragma once
#include "Tessarin/Export.h"
#include <string_view>

namespace Tessarin {

/// Whether the part behind the "@" may be of any script, "ada@bücher.example".
enum class InternationalDomains { No, Yes };

/// Whether a text is what browsers accept in an e-mail field: the grammar of the HTML standard. That is stricter than mail itself
/// (no comments, no quoted names) and laxer (two dots in a row). Nothing is trimmed, and nobody is asked whether the address
/// exists. With `InternationalDomains::Yes` a domain counts as what it is in ASCII by IDNA (UTS 46, non-transitional); the part
/// before the "@" is ASCII all the same.
TESSARIN_API bool isEmailAddress(std::string_view text, InternationalDomains domains = InternationalDomains::No);

} // namespace Tessarin
