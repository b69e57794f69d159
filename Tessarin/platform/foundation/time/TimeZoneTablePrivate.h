#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// A span in which the clocks of a zone keep one distance from universal time. It ends where the next one starts.
struct ZonePeriod {
    std::int64_t start;  // seconds since 2001-01-01 UTC
    std::int32_t offset; // seconds that the clock on the wall is ahead of universal time; less than `TimeZoneTable::widest`
    std::uint16_t name;  // of the table's abbreviations
    bool isDaylight;
};

/// The periods of a zone in order, so that instants and wall times find each other in some ten nanoseconds (benchmark "dates").
/// Wall times are seconds since 2001-01-01 00:00 on the clock at the wall. What a rule says of the years to come is written out
/// for one cycle of the calendar, 400 years, and later years look there.
class TimeZoneTable {
public:
    static constexpr std::int64_t widest = 26 * 3600;

    /// Both absent when ill-formed. A file has the TZif form of any version, a rule the form of POSIX:
    /// "CET-1CEST,M3.5.0,M10.5.0/3".
    static std::optional<TimeZoneTable> fromFile(std::string_view content);
    static std::optional<TimeZoneTable> fromRule(std::string_view rule);
    static TimeZoneTable fixed(std::int32_t offset, std::string abbreviation);

    ZonePeriod const& periodAt(std::int64_t instant) const noexcept {
        return periods_[indexAt(instant < cycleEnd_ ? instant : intoCycle(instant))];
    }
    std::string const& abbreviation(ZonePeriod const& period) const { return abbreviations_[period.name]; }
    /// Whether the clocks are ahead of the rest of the year. In Ireland the flag of daylight saving stands for the winter.
    static bool isSummer(ZonePeriod const& period) noexcept {
        auto const& next = (&period)[1]; // the mark at the latest
        if (period.isDaylight) return next.isDaylight || next.offset <= period.offset;
        return next.isDaylight && next.offset < period.offset;
    }
    /// Of a wall time that occurs twice, the instant with the offset `preferred`, else the first; one that the clocks skip
    /// moves forward by what they skip.
    std::int64_t instantOf(std::int64_t wall, std::optional<std::int32_t> preferred) const noexcept;
    /// When the period ends that the instant lies in; absent when it never does.
    std::optional<std::int64_t> changeAfter(std::int64_t instant) const noexcept;

private:
    friend class TimeZoneTableBuilder;
    static constexpr int bucketBits = 24; // 194 days: hardly ever more than one change
    static constexpr std::int64_t cycle = 146'097LL * 86'400;

    std::size_t indexAt(std::int64_t instant) const noexcept {
        auto const bucket = static_cast<std::uint64_t>(instant - firstBucket_) >> bucketBits; // huge when before the first
        if (bucket >= buckets_.size()) return indexBySearch(instant);
        std::size_t index = buckets_[bucket];
        while (periods_[index + 1].start <= instant) ++index;
        return index;
    }
    std::size_t indexBySearch(std::int64_t instant) const noexcept;
    std::int64_t intoCycle(std::int64_t instant) const noexcept { return instant - ((instant - cycleEnd_) / cycle + 1) * cycle; }
    std::int64_t instantNearChange(ZonePeriod const* period, std::int64_t wall,
                                   std::optional<std::int32_t> preferred) const noexcept;

    std::vector<ZonePeriod> periods_; // the last one is a mark that nothing reaches
    std::vector<std::string> abbreviations_;
    std::vector<std::uint16_t> buckets_; // the period in which each bucket starts
    std::int64_t firstBucket_ = 0;
    std::int64_t cycleEnd_ = 0; // the periods of the 400 years before it repeat for ever
};

} // namespace Tessarin
