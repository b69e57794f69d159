#include "Tessarin/platform/foundation/text/DomainNamePrivate.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <unicode/bytestream.h>
#include <unicode/idna.h>

#include <memory>

namespace Tessarin {
namespace {

constexpr std::size_t longest = 4 * 255; // no name of 255 bytes in ASCII is longer before

icu::IDNA const& rules() {
    static auto const shared = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::IDNA const> made{icu::IDNA::createUTS46Instance(
            UIDNA_USE_STD3_RULES | UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ | UIDNA_NONTRANSITIONAL_TO_ASCII, status)};
        if (U_FAILURE(status)) fatal("the Unicode data of ICU cannot be read");
        return made;
    }();
    return *shared;
}

} // namespace

std::optional<std::string> domainInASCII(std::string_view domain) {
    if (domain.empty() || domain.size() > longest) return {};
    UErrorCode status = U_ZERO_ERROR;
    icu::IDNAInfo info;
    std::string ascii;
    icu::StringByteSink<std::string> sink(&ascii);
    rules().nameToASCII_UTF8({domain.data(), static_cast<std::int32_t>(domain.size())}, sink, info, status);
    return U_FAILURE(status) || info.hasErrors() ? std::nullopt : std::optional(std::move(ascii));
}

} // namespace Tessarin
