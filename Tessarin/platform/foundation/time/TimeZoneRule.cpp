#include "Tessarin/platform/foundation/time/TimeZoneRulePrivate.h"

#include "Tessarin/platform/foundation/time/CivilDate.h"

namespace Tessarin {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

/// Reads a rule from the left; the first thing that does not fit makes it `failed` for good.
class RuleReader {
public:
    explicit RuleReader(std::string_view text) : text_(text) {}

    bool failed() const { return failed_; }
    bool atEnd() const { return text_.empty(); }
    char next() const { return text_.empty() ? '\0' : text_[0]; }
    bool skip(char expected) {
        if (next() != expected || text_.empty()) return false;
        text_.remove_prefix(1);
        return true;
    }
    void expect(char expected) { failed_ |= !skip(expected); }

    int number(int least, int most) {
        int value = 0;
        std::size_t digits = 0;
        for (; digits < text_.size() && digits < 4 && isDigit(text_[digits]); ++digits)
            value = value * 10 + (text_[digits] - '0');
        text_.remove_prefix(digits);
        failed_ |= digits == 0 || value < least || value > most;
        return value;
    }
    /// "CET", or quoted, then also with digits and signs: "<+0330>".
    std::string abbreviation() {
        bool const isQuoted = skip('<');
        std::size_t size = 0;
        while (size < text_.size() && (isQuoted ? text_[size] != '>' : isLetter(text_[size]))) ++size;
        std::string name{text_.substr(0, size)};
        text_.remove_prefix(size);
        if (isQuoted) expect('>');
        failed_ |= size < 3;
        return name;
    }
    /// "-3", "5:30", "+1:00:00", in seconds.
    std::int32_t time(int mostHours) {
        int const sign = skip('-') ? -1 : 1;
        if (sign > 0) skip('+');
        int seconds = number(0, mostHours) * 3600;
        if (skip(':')) seconds += number(0, 59) * 60;
        if (skip(':')) seconds += number(0, 59);
        return sign * seconds;
    }
    TimeZoneRule::Moment moment() {
        using Kind = TimeZoneRule::Moment::Kind;
        TimeZoneRule::Moment moment;
        if (skip('M')) {
            moment.month = number(1, 12);
            expect('.');
            moment.week = number(1, 5);
            expect('.');
            moment.day = number(0, 6);
        } else if (skip('J')) {
            moment.kind = Kind::Julian;
            moment.day = number(1, 365);
        } else {
            moment.kind = Kind::Day;
            moment.day = number(0, 365);
        }
        if (skip('/')) moment.time = time(167);
        return moment;
    }

private:
    std::string_view text_;
    bool failed_ = false;
};

/// Days since 2001-01-01, of which 0 was a Monday.
std::int64_t weekdayOfMonth(std::int64_t year, TimeZoneRule::Moment const& moment) {
    auto const first = daysFromCivil({year, moment.month, 1});
    auto const weekday = ((first + 1) % 7 + 7) % 7;
    auto const day = (moment.day - weekday + 7) % 7 + (moment.week - 1) * 7;
    return first + (day < daysInMonth(year, moment.month) ? day : day - 7);
}

} // namespace

std::int64_t TimeZoneRule::Moment::inYear(std::int64_t year) const {
    auto const firstDay = daysFromCivil({year, 1, 1});
    switch (kind) {
    case Kind::Weekday: return weekdayOfMonth(year, *this) * 86'400 + time;
    case Kind::Day: return (firstDay + day) * 86'400 + time;
    case Kind::Julian: break;
    }
    bool const passesLeapDay = day >= 60 && daysInMonth(year, 2) == 29;
    return (firstDay + day - 1 + passesLeapDay) * 86'400 + time;
}

std::optional<TimeZoneRule> TimeZoneRule::fromText(std::string_view text) {
    RuleReader in{text};
    TimeZoneRule rule;
    rule.standard.abbreviation = in.abbreviation();
    rule.standard.offset = -in.time(24);
    if (!in.atEnd()) {
        rule.daylight.emplace().abbreviation = in.abbreviation();
        rule.daylight->offset = in.next() == ',' || in.atEnd() ? rule.standard.offset + 3600 : -in.time(24);
        RuleReader american{",M3.2.0,M11.1.0"};
        auto& moments = in.atEnd() ? american : in;
        moments.expect(',');
        rule.start = moments.moment();
        moments.expect(',');
        rule.end = moments.moment();
    }
    if (in.failed() || !in.atEnd()) return {};
    return rule;
}

} // namespace Tessarin
