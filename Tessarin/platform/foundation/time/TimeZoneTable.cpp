#include "Tessarin/platform/foundation/time/TimeZoneTablePrivate.h"

#include "Tessarin/platform/foundation/time/CivilDate.h"
#include "Tessarin/platform/foundation/time/TimeZoneFilePrivate.h"
#include "Tessarin/platform/foundation/time/TimeZoneRulePrivate.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace Tessarin {
namespace {

constexpr auto never = std::numeric_limits<std::int64_t>::max();
constexpr auto always = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t reference = 978'307'200; // 2001-01-01 in seconds since 1970
constexpr std::int64_t firstRuledYear = 1600;   // before it, a rule without a file has standard time
constexpr std::size_t mostBuckets = 4096; // 2,177 years; after them there is the search
constexpr std::int64_t year1800 = -6'342'883'200; // no zone's clocks changed much before

std::int64_t secondOfYear(std::int64_t year) { return daysFromCivil({year, 1, 1}) * 86'400; }
std::int64_t yearOf(std::int64_t instant) { return civilFromDays(instant / 86'400 - (instant % 86'400 < 0)).year; }

} // namespace

/// Collects periods in order.
class TimeZoneTableBuilder {
public:
    void add(std::int64_t start, std::int32_t offset, bool isDaylight, std::string const& abbreviation) {
        ZonePeriod const period{start, offset, name(abbreviation), isDaylight};
        auto& periods = table_.periods_;
        while (!periods.empty() && periods.back().start >= start) periods.pop_back(); // a period of no length
        if (!periods.empty() && isSame(periods.back(), period)) return;
        periods.push_back(period);
    }
    /// The changes that a rule makes after `instant`, through a whole cycle of years.
    void addRule(TimeZoneRule const& rule, std::int64_t instant, std::int64_t firstYear) {
        auto const lastYear = std::max(firstYear, yearOf(std::max(instant, std::int64_t{0}))) + 402;
        for (auto year = firstYear; year <= lastYear; ++year) {
            auto const start = rule.start.inYear(year) - rule.standard.offset;
            auto const end = rule.end.inYear(year) - rule.daylight->offset;
            bool const isNorthern = start < end;
            if (isNorthern && start > instant) addClock(start, *rule.daylight, true);
            if (end > instant) addClock(end, rule.standard, false);
            if (!isNorthern && start > instant) addClock(start, *rule.daylight, true);
        }
        table_.cycleEnd_ = secondOfYear(lastYear); // the year after it may already begin in the one before
    }
    void addClock(std::int64_t start, TimeZoneClock const& clock, bool isDaylight) {
        add(start, clock.offset, isDaylight, clock.abbreviation);
    }

    TimeZoneTable finish() {
        auto& [periods, names, buckets, firstBucket, cycleEnd] = table_;
        if (cycleEnd == 0) cycleEnd = never;
        auto const lastStart = periods.back().start;
        auto mark = periods.back();
        mark.start = never;
        periods.push_back(mark);
        firstBucket = std::max(year1800, periods.size() > 2 ? periods[1].start : 0);
        std::uint16_t index = 0;
        for (auto time = firstBucket; time <= lastStart && buckets.size() < mostBuckets;
             time += std::int64_t{1} << TimeZoneTable::bucketBits) {
            while (periods[index + 1U].start <= time) ++index;
            buckets.push_back(index);
        }
        return std::move(table_);
    }

private:
    static bool isSame(ZonePeriod const& a, ZonePeriod const& b) {
        return a.offset == b.offset && a.isDaylight == b.isDaylight && a.name == b.name;
    }
    std::uint16_t name(std::string const& abbreviation) {
        auto& names = table_.abbreviations_;
        auto const at = std::ranges::find(names, abbreviation) - names.begin();
        if (at == std::ssize(names)) names.push_back(abbreviation);
        return static_cast<std::uint16_t>(at);
    }

    TimeZoneTable table_;
};

std::optional<TimeZoneTable> TimeZoneTable::fromFile(std::string_view content) {
    auto const file = TimeZoneFile::fromContent(content);
    if (!file) return {};
    TimeZoneTableBuilder builder;
    auto const add = [&](std::int64_t start, TimeZoneFile::Type const& type) {
        builder.add(start, type.offset, type.isDaylight, type.abbreviation);
    };
    add(always, file->types.front());
    for (auto const& [time, type] : file->changes) add(time - reference, file->types[type]);
    if (auto const rule = TimeZoneRule::fromText(file->footer)) {
        auto const last = file->changes.empty() ? always : file->changes.back().time - reference;
        if (rule->daylight)
            builder.addRule(*rule, last, last == always ? firstRuledYear : yearOf(last) - 1);
        else if (file->changes.empty())
            builder.addClock(always, rule->standard, false);
    }
    return builder.finish();
}

std::optional<TimeZoneTable> TimeZoneTable::fromRule(std::string_view text) {
    auto const rule = TimeZoneRule::fromText(text);
    if (!rule) return {};
    TimeZoneTableBuilder builder;
    builder.addClock(always, rule->standard, false);
    if (rule->daylight) builder.addRule(*rule, always, firstRuledYear);
    return builder.finish();
}

TimeZoneTable TimeZoneTable::fixed(std::int32_t offset, std::string abbreviation) {
    TimeZoneTableBuilder builder;
    builder.add(always, offset, false, abbreviation);
    return builder.finish();
}

std::size_t TimeZoneTable::indexBySearch(std::int64_t instant) const noexcept {
    auto const after = std::ranges::upper_bound(periods_, instant, {}, &ZonePeriod::start);
    return static_cast<std::size_t>(after - periods_.begin()) - 1;
}

std::int64_t TimeZoneTable::instantOf(std::int64_t wall, std::optional<std::int32_t> preferred) const noexcept {
    auto const inCycle = wall - widest < cycleEnd_ ? wall : intoCycle(wall - widest) + widest;
    auto const* const period = &periods_[indexAt(inCycle - widest)];
    bool const isPlain = inCycle + widest < period[1].start;
    return (isPlain ? inCycle - period->offset : instantNearChange(period, inCycle, preferred)) + (wall - inCycle);
}

/// Looks at every period that may show that wall time.
std::int64_t TimeZoneTable::instantNearChange(ZonePeriod const* period, std::int64_t wall,
                                          std::optional<std::int32_t> preferred) const noexcept {
    std::optional<std::int64_t> first;
    std::int64_t moved = wall - period->offset;
    for (; period->start <= wall + widest; ++period) {
        auto const instant = wall - period->offset;
        if (instant < period->start) continue;
        if (instant >= period[1].start) {
            if (wall - period[1].offset < period[1].start) moved = instant; // skipped: as if the clocks had not changed yet
            continue;
        }
        if (period->offset == preferred) return instant;
        if (!first) first = instant;
    }
    return first.value_or(moved);
}

std::optional<std::int64_t> TimeZoneTable::changeAfter(std::int64_t instant) const noexcept {
    auto const inCycle = instant < cycleEnd_ ? instant : intoCycle(instant);
    auto const next = periods_[indexAt(inCycle) + 1].start;
    if (next == never) return {};
    return next + (instant - inCycle);
}

} // namespace Tessarin
