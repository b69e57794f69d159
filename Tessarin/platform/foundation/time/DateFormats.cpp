#include "Tessarin/platform/foundation/time/DateFormatsPrivate.h"

#include "Tessarin/platform/foundation/time/CivilDate.h"
#include "Tessarin/platform/foundation/time/NSCalendar.h"
#include "Tessarin/platform/foundation/time/OtherCalendarPrivate.h"
#include "Tessarin/platform/foundation/time/TimeZoneTablePrivate.h"
#include "Tessarin/platform/foundation/time/UserEnvironmentPrivate.h"

#include <cmath>
#include <unordered_map>
#include <fmt/format.h>
#include <unicode/calendar.h>
#include <unicode/dtfmtsym.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>

namespace Tessarin {
namespace {

constexpr double reference = 978'307'200; // 2001-01-01 in ICU's seconds

std::int64_t floored(double milliseconds) { return static_cast<std::int64_t>(std::floor(milliseconds / 1000 - reference)); }

/// Our clocks under ICU's formats, whose own zones are as old as the ICU that is installed. By its name ICU finds what the zone
/// is called in the user's language.
class FormatZone : public icu::TimeZone {
public:
    explicit FormatZone(Ref<NSTimeZone> zone)
        : icu::TimeZone(icu::UnicodeString::fromUTF8(zone->name())), zone_(std::move(zone)) {}

    FormatZone* clone() const override { return new FormatZone(*this); }
    UClassID getDynamicClassID() const override { return &classID; }
    bool operator==(icu::TimeZone const& other) const override { return typeid(other) == typeid(*this) && hasSameRules(other); }
    UBool hasSameRules(icu::TimeZone const& other) const override {
        auto const* const same = dynamic_cast<FormatZone const*>(&other);
        return same && same->zone_ == zone_;
    }

    void getOffset(UDate date, UBool isWall, std::int32_t& raw, std::int32_t& saving, UErrorCode&) const override {
        auto const& clocks = zone_->table();
        auto const time = floored(date);
        auto const instant = isWall ? clocks.instantOf(time, {}) : time;
        auto const& period = clocks.periodAt(instant);
        auto const offset = isWall ? static_cast<std::int32_t>(time - instant) : period.offset;
        saving = TimeZoneTable::isSummer(period) ? 3'600'000 : 0;
        raw = offset * 1000 - saving;
    }
    std::int32_t getOffset(std::uint8_t era, std::int32_t year, std::int32_t month, std::int32_t day, std::uint8_t,
                           std::int32_t milliseconds, UErrorCode& status) const override {
        std::int32_t raw = 0, saving = 0;
        auto const days = daysFromCivil({era == icu::GregorianCalendar::BC ? 1 - std::int64_t{year} : year, month + 1, day});
        getOffset((static_cast<double>(days) * 86'400 + reference) * 1000 + milliseconds, true, raw, saving, status);
        return raw + saving;
    }
    std::int32_t getOffset(std::uint8_t era, std::int32_t year, std::int32_t month, std::int32_t day, std::uint8_t weekday,
                           std::int32_t milliseconds, std::int32_t, UErrorCode& status) const override {
        return getOffset(era, year, month, day, weekday, milliseconds, status);
    }
    void setRawOffset(std::int32_t) override {}
    std::int32_t getRawOffset() const override {
        UErrorCode status = U_ZERO_ERROR;
        std::int32_t raw = 0, saving = 0;
        getOffset(icu::Calendar::getNow(), false, raw, saving, status);
        return raw;
    }
    UBool useDaylightTime() const override { return zone_->table().changeAfter(floored(icu::Calendar::getNow())).has_value(); }
    UBool inDaylightTime(UDate date, UErrorCode&) const override {
        return TimeZoneTable::isSummer(zone_->table().periodAt(floored(date)));
    }

private:
    static inline char classID = 0;

    Ref<NSTimeZone> zone_;
};

icu::DateFormat::EStyle icuStyle(NSDateFormatterStyle style) {
    switch (style) {
    case NSDateFormatterStyle::No: return icu::DateFormat::kNone;
    case NSDateFormatterStyle::Medium: return icu::DateFormat::kMedium;
    case NSDateFormatterStyle::Long: return icu::DateFormat::kLong;
    case NSDateFormatterStyle::Full: return icu::DateFormat::kFull;
    default: return icu::DateFormat::kShort;
    }
}

std::unique_ptr<icu::DateFormat> makeFormat(DateFormat const& wish, UserEnvironment const& environment) {
    icu::Locale const locale(wish.isForMachines ? "en_US@calendar=gregorian" : environment.locale.c_str());
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::DateFormat> format;
    if (wish.pattern.empty())
        format.reset(icu::DateFormat::createDateTimeInstance(icuStyle(wish.dateStyle), icuStyle(wish.timeStyle), locale));
    else
        format = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString::fromUTF8(wish.pattern), locale, status);
    if (!format || U_FAILURE(status)) return nullptr;
    format->adoptTimeZone(new FormatZone(environment.zone));
    format->setLenient(false);
    format->setBooleanAttribute(UDAT_PARSE_PARTIAL_LITERAL_MATCH, false, status);
    format->setBooleanAttribute(UDAT_PARSE_MULTIPLE_PATTERNS_FOR_MATCH, false, status);
    return format;
}

/// What a thread keeps of one environment.
struct Kept {
    std::uint64_t generation = ~std::uint64_t{0};
    std::unordered_map<std::string, std::unique_ptr<icu::DateFormat>> formats;
    std::array<std::vector<std::string>, 5> symbols;
};

Kept& keptIn(UserEnvironment const& environment) {
    thread_local Kept kept;
    if (kept.generation != environment.generation) kept = {.generation = environment.generation};
    return kept;
}

/// Null when there is nothing to write, or the pattern makes no sense to ICU.
icu::DateFormat* formatFor(DateFormat const& wish) {
    auto const& [dateStyle, timeStyle, pattern, isForMachines] = wish;
    if (pattern.empty() && dateStyle == NSDateFormatterStyle::No && timeStyle == NSDateFormatterStyle::No) return nullptr;
    auto const& environment = UserEnvironment::current();
    auto& formats = keptIn(environment).formats;
    auto const key = pattern.empty()
                         ? fmt::format("{} {}", static_cast<std::int64_t>(dateStyle), static_cast<std::int64_t>(timeStyle))
                         : fmt::format("{}{}", isForMachines ? '"' : '\'', pattern);
    auto const found = formats.find(key);
    if (found != formats.end()) return found->second.get();
    if (formats.size() >= 64) formats.clear(); // patterns that are made up as they come
    return (formats[key] = makeFormat(wish, environment)).get();
}

std::vector<std::string> readSymbols(DateSymbols list, UserEnvironment const& environment) {
    using Symbols = icu::DateFormatSymbols;
    static constexpr Symbols::DtWidthType widths[] = {Symbols::WIDE, Symbols::ABBREVIATED, Symbols::NARROW, Symbols::WIDE,
                                                      Symbols::ABBREVIATED};
    UErrorCode status = U_ZERO_ERROR;
    Symbols const symbols(icu::Locale(environment.locale.c_str()), environment.calendar->calendarIdentifier().c_str(), status);
    bool const isMonths = list == DateSymbols::Months || list == DateSymbols::ShortMonths;
    auto const width = widths[static_cast<std::size_t>(list)];
    std::int32_t count = 0;
    auto const* const names =
        isMonths ? symbols.getMonths(count, Symbols::FORMAT, width) : symbols.getWeekdays(count, Symbols::FORMAT, width);
    std::vector<std::string> result;
    for (std::int32_t at = isMonths ? 0 : 1; at < count; ++at)
        names[at].toUTF8String(result.emplace_back()); // no weekday has number 0
    return result;
}

/// Whether ICU may read a text: from 35 digits of a second on it divides by zero, and no date has as many in all its fields.
bool isReadable(icu::UnicodeString const& text) {
    constexpr std::int32_t mostUnits = 1000, mostDigits = 32;
    if (text.length() > mostUnits) return false;
    std::int32_t digits = 0;
    for (std::int32_t at = 0; at < text.length(); at = text.moveIndex32(at, 1)) digits += u_isdigit(text.char32At(at));
    return digits <= mostDigits;
}

} // namespace

std::string DateFormat::text(double seconds) const {
    auto* const format = formatFor(*this);
    if (!format || !(std::abs(seconds) < 1.8e14)) return {};
    bool const isGregorian = isForMachines || UserEnvironment::current().calendar->calendarIdentifier() == "gregorian";
    if (!isGregorian && !OtherCalendar::reaches(static_cast<std::int64_t>(seconds / 86'400))) return {};
    icu::UnicodeString text;
    std::string result;
    return format->format((seconds + reference) * 1000, text).toUTF8String(result);
}

std::optional<double> DateFormat::seconds(std::string_view text) const {
    auto* const format = formatFor(*this);
    if (!format) return {};
    if (text.size() > 4000) return {};
    auto const utf16 = icu::UnicodeString::fromUTF8(text);
    if (!isReadable(utf16)) return {};
    icu::ParsePosition position;
    auto const date = format->parse(utf16, position);
    if (position.getErrorIndex() >= 0 || position.getIndex() != utf16.length()) return {};
    return date / 1000 - reference;
}

std::vector<std::string> dateSymbols(DateSymbols list) {
    auto const& environment = UserEnvironment::current();
    auto& known = keptIn(environment).symbols[static_cast<std::size_t>(list)];
    if (known.empty()) known = readSymbols(list, environment);
    return known;
}

} // namespace Tessarin
