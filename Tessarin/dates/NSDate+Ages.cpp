#include "Tessarin/dates/NSDate+Ages.h"

#include "Tessarin/dates/Double+Time.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/bundles/NSLocalizedString.h"
#include "Tessarin/platform/foundation/time/RelativeTimePrivate.h"
#include "Tessarin/platform/runtime/NumberText.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <fmt/format.h>

namespace Tessarin {
namespace {

/// A key of the table of texts, and what translators read beside it.
struct Word {
    std::string_view key, comment;
};

struct Unit {
    std::uint64_t seconds;
    Word many, one, medium, brief;
};

// "days" stands twice, with different comments: only a translator function can tell these two apart.
constexpr Unit ladder[] = {
    {31'104'000, {"years", "long years"}, {"1 year", "1 year"}, {"yr", "medium years"}, {"y", "short years"}},
    {2'592'000, {"months", "long months"}, {"1 month", "1 month"}, {"mos", "medium months"}, {"mo", "short months"}},
    {604'800, {"weeks", "long weeks"}, {"1 week", "1 week"}, {"wk", "medium weeks"}, {"w", "short weeks"}},
    {86'400, {"days", "long days"}, {"1 day", "1 day"}, {"days", "medium days"}, {"d", "short days"}},
    {3'600, {"hours", "long hours"}, {"1 hour", "1 hour"}, {"hr", "medium hours"}, {"h", "short hours"}},
    {60, {"minutes", "long minutes"}, {"1 minute", "1 minute"}, {"min", "medium minutes"}, {"m", "short minutes"}},
    {1, {"seconds", "long seconds"}, {"1 second", "1 second"}, {"sec", "medium seconds"}, {"s", "short seconds"}},
};

std::string localized(Word const& word) { return NSLocalizedString(word.key, word.comment); }

std::string joined(std::uint64_t count, std::string_view between, Word const& word) {
    fmt::format_int const digits(count);
    return std::string{digits.data(), digits.size()}.append(between).append(localized(word));
}

/// The size of the interval in whole seconds.
std::uint64_t wholeSeconds(double interval) {
    auto const seconds = Double::seconds(interval);
    if (seconds == std::numeric_limits<std::int64_t>::min())
        fatal(fmt::format("NSDate::ageString: {} has no absolute value", seconds));
    return static_cast<std::uint64_t>(std::abs(seconds));
}

} // namespace

std::string NSDateAges::ageString(double seconds, NSDateFormatterStyle style) {
    auto const size = wholeSeconds(seconds);
    if (size == 0) return localized({"now", "now"}); // also in the style that shows nothing else
    auto const& unit = *std::ranges::find_if(ladder, [size](Unit const& each) { return size >= each.seconds; });
    auto const count = size / unit.seconds;
    switch (style) { // shifted by one on purpose: medium still has the brief words, and only full the long ones
    case NSDateFormatterStyle::No: return {};
    case NSDateFormatterStyle::Medium: return joined(count, " ", unit.brief);
    case NSDateFormatterStyle::Long: return joined(count, " ", unit.medium);
    case NSDateFormatterStyle::Full: return count == 1 ? localized(unit.one) : joined(count, " ", unit.many);
    default: return joined(count, "", unit.brief);
    }
}

std::string NSDateAges::relativeAgeString(double seconds, NSDateFormatterStyle style) {
    auto const size = wholeSeconds(seconds);
    if (style == NSDateFormatterStyle::No) return {};
    if (size == 0) return relativeTimeText(0, RelativeUnit::Seconds, style);
    auto const* const unit = std::ranges::find_if(ladder, [size](Unit const& each) { return size >= each.seconds; });
    auto const count = static_cast<double>(size / unit->seconds);
    return relativeTimeText(seconds > 0 ? -count : count, static_cast<RelativeUnit>(unit - ladder),
                            style); // in the ladder's order
}

std::string NSDateAges::durationStringRelativeTo(NSDate const& other) const {
    auto text = shortestText(std::abs(static_cast<NSDate const&>(*this).timeIntervalSinceDate(other)));
    if (text.size() > 12) text.resize(12); // all of it is ASCII
    return text + " s";
}

} // namespace Tessarin
