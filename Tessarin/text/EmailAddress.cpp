#include "Tessarin/text/EmailAddress.h"

#include "Tessarin/platform/foundation/predicates/TextFolding.h"
#include "Tessarin/platform/foundation/text/DomainNamePrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

constexpr std::size_t longestLabel = 63;

bool isLetterOrDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isOfName(char c) { return isLetterOrDigit(c) || std::string_view{".!#$%&'*+/=?^_`{|}~-"}.find(c) != std::string_view::npos; }

bool isLabel(std::string_view label) {
    return !label.empty() && label.size() <= longestLabel && isLetterOrDigit(label.front()) && isLetterOrDigit(label.back()) &&
           std::ranges::all_of(label, [](char c) { return isLetterOrDigit(c) || c == '-'; });
}

bool isDomain(std::string_view domain) {
    for (;;) {
        auto const dot = domain.find('.');
        if (!isLabel(domain.substr(0, dot))) return false;
        if (dot == domain.npos) return true;
        domain.remove_prefix(dot + 1);
    }
}

} // namespace

bool isEmailAddress(std::string_view text, InternationalDomains domains) {
    auto const at = text.find('@');
    if (at == text.npos || at == 0 || !std::ranges::all_of(text.substr(0, at), isOfName)) return false;
    auto const domain = text.substr(at + 1);
    if (domains == InternationalDomains::No || isASCII(domain)) return isDomain(domain);
    auto const ascii = domainInASCII(domain);
    return ascii && isDomain(*ascii);
}

} // namespace Tessarin
