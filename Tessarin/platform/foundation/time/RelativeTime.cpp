#include "Tessarin/platform/foundation/time/RelativeTimePrivate.h"

#include "Tessarin/platform/foundation/time/UserEnvironmentPrivate.h"

#include <map>
#include <memory>
#include <unicode/reldatefmt.h>

namespace Tessarin {
namespace {

using Formatter = icu::RelativeDateTimeFormatter;

constexpr URelativeDateTimeUnit icuUnits[] = {UDAT_REL_UNIT_YEAR, UDAT_REL_UNIT_MONTH,  UDAT_REL_UNIT_WEEK,  UDAT_REL_UNIT_DAY,
                                              UDAT_REL_UNIT_HOUR, UDAT_REL_UNIT_MINUTE, UDAT_REL_UNIT_SECOND};

UDateRelativeDateTimeFormatterStyle icuStyle(NSDateFormatterStyle style) {
    switch (style) {
    case NSDateFormatterStyle::Full:
    case NSDateFormatterStyle::Long: return UDAT_STYLE_LONG;
    case NSDateFormatterStyle::Medium: return UDAT_STYLE_SHORT;
    default: return UDAT_STYLE_NARROW;
    }
}

/// Each thread keeps those of its last environment: one is made in a tenth of a millisecond.
Formatter* formatterFor(UDateRelativeDateTimeFormatterStyle style) {
    thread_local std::uint64_t generation = ~std::uint64_t{0};
    thread_local std::map<UDateRelativeDateTimeFormatterStyle, std::unique_ptr<Formatter>> kept;
    auto const& environment = UserEnvironment::current();
    if (std::exchange(generation, environment.generation) != environment.generation) kept.clear();
    auto& formatter = kept[style];
    UErrorCode status = U_ZERO_ERROR;
    if (!formatter)
        formatter = std::make_unique<Formatter>(icu::Locale(environment.locale.c_str()), nullptr, style,
                                                UDISPCTX_CAPITALIZATION_NONE, status);
    if (U_FAILURE(status)) formatter.reset();
    return formatter.get();
}

} // namespace

std::string relativeTimeText(double amount, RelativeUnit unit, NSDateFormatterStyle style) {
    auto const* const formatter = formatterFor(icuStyle(style));
    if (!formatter) return {};
    auto const icuUnit = icuUnits[static_cast<std::size_t>(unit)];
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString text;
    std::string result;
    amount == 0 ? formatter->format(amount, icuUnit, text, status) : formatter->formatNumeric(amount, icuUnit, text, status);
    return U_FAILURE(status) ? std::string{} : text.toUTF8String(result);
}

} // namespace Tessarin
