#include "Tessarin/platform/foundation/time/NSDate+Parsing.h"

#include "Tessarin/platform/foundation/time/CivilDate.h"
#include "Tessarin/platform/foundation/time/NSDate.h"

namespace Tessarin {
namespace {

/// Three letters as one number. All names are compared, without a branch that depends on the text (benchmark "dates").
constexpr std::uint32_t packed(char const* letters) {
    auto const byte = [&](int at) { return std::uint32_t{static_cast<unsigned char>(letters[at])}; };
    return byte(0) | byte(1) << 8 | byte(2) << 16;
}
/// Of names that stand one behind the other.
template <std::size_t size> constexpr auto packedNames(char const (&text)[size]) {
    std::array<std::uint32_t, size / 3> names{};
    for (std::size_t at = 0; at < names.size(); ++at) names[at] = packed(text + at * 3);
    return names;
}
constexpr auto weekdays = packedNames("MonTueWedThuFriSatSun");
constexpr auto months = packedNames("JanFebMarAprMayJunJulAugSepOctNovDec");

/// Reads a text from the left; the first thing that does not fit makes it `failed` for good.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool atEnd() const { return text_.empty(); }
    bool failed() const { return failed_; }
    char next() const { return text_.empty() ? '\0' : text_[0]; }

    bool skip(std::string_view expected) {
        if (!text_.starts_with(expected)) return false;
        text_.remove_prefix(expected.size());
        return true;
    }
    bool skip(char expected) {
        if (text_.empty() || text_[0] != expected) return false;
        text_.remove_prefix(1);
        return true;
    }
    void expect(auto expected) {
        if (!skip(expected)) failed_ = true;
    }
    /// A number of exactly that many digits, between the bounds.
    template <std::size_t digits> int number(int least, int most) {
        if (text_.size() < digits) return fail();
        unsigned value = 0, worst = 0;
        for (std::size_t at = 0; at < digits; ++at) {
            auto const digit = static_cast<unsigned>(text_[at]) - '0';
            worst |= digit > 9;
            value = value * 10 + digit;
        }
        text_.remove_prefix(digits);
        auto const result = static_cast<int>(value);
        return worst || result < least || result > most ? fail() : result;
    }
    /// The position of a three-letter name.
    template <std::size_t count> int name(std::array<std::uint32_t, count> const& names) {
        if (text_.size() < 3) return fail();
        auto const wanted = packed(text_.data());
        int position = -1;
        for (std::size_t at = 0; at < count; ++at) position = names[at] == wanted ? static_cast<int>(at) : position;
        text_.remove_prefix(3);
        return position < 0 ? fail() : position;
    }
    int fail() {
        failed_ = true;
        return 0;
    }

private:
    std::string_view text_;
    bool failed_ = false;
};

struct Zone {
    std::string_view name;
    int hours;
};
constexpr Zone zones[] = {{"GMT", 0},  {"UTC", 0},  {"EST", -5}, {"EDT", -4}, {"CST", -6},
                          {"CDT", -5}, {"MST", -7}, {"MDT", -6}, {"PST", -8}, {"PDT", -7}};

/// Seconds to add to universal time: "+0100" or "+01:00".
int readOffset(Reader& in) {
    int const sign = in.skip('-') ? -1 : 1;
    if (sign > 0) in.expect('+');
    int const hours = in.number<2>(0, 23);
    in.skip(':');
    return sign * (hours * 60 + in.number<2>(0, 59)) * 60;
}

int readNamedZone(Reader& in) {
    if (in.next() == '+' || in.next() == '-') return readOffset(in);
    for (auto const& zone : zones) {
        if (!in.skip(zone.name)) continue;
        return zone.name == "GMT" && !in.atEnd() ? readOffset(in) : zone.hours * 3600;
    }
    return in.fail();
}

int readTime(Reader& in) {
    int const hours = in.number<2>(0, 23);
    in.expect(':');
    int const minutes = in.number<2>(0, 59);
    in.expect(':');
    return (hours * 60 + minutes) * 60 + in.number<2>(0, 59);
}

std::optional<NSDate> made(std::int64_t days, double seconds) {
    return NSDate::dateWithTimeIntervalSinceReferenceDate(static_cast<double>(days) * 86400 + seconds);
}

/// Days of a date that the calendar has; 1582-10-05 to 14 it has not.
std::int64_t daysOf(Reader& in, CivilDate const& date) {
    auto const days = daysFromCivil(date);
    if (date.day > 28 || date.year == 1582)
        if (civilFromDays(days) != date) in.fail();
    return days;
}

} // namespace

std::optional<NSDate> NSDateParsing::dateWithISO8601Text(std::string_view text) {
    Reader in{text};
    CivilDate date;
    date.year = in.number<4>(1, 9999);
    in.expect('-');
    date.month = in.number<2>(1, 12);
    in.expect('-');
    date.day = in.number<2>(1, 31);
    in.expect('T');
    int const time = readTime(in);
    in.expect('.');
    int const milliseconds = in.number<3>(0, 999);
    int const offset = in.skip('Z') ? 0 : readOffset(in);
    if (in.failed() || !in.atEnd()) return {};
    auto const days = daysOf(in, date);
    if (in.failed()) return {};
    return made(days, time - offset + milliseconds / 1000.0);
}

std::optional<NSDate> NSDateParsing::dateWithRFC822Text(std::string_view text) {
    Reader in{text};
    CivilDate date;
    int const weekday = in.name(weekdays);
    in.expect(", ");
    date.day = in.number<2>(1, 31);
    in.expect(' ');
    date.month = in.name(months) + 1;
    in.expect(' ');
    date.year = in.number<4>(1, 9999);
    in.expect(' ');
    int const time = readTime(in);
    in.expect(' ');
    int const offset = readNamedZone(in);
    if (in.failed() || !in.atEnd()) return {};
    auto const days = daysOf(in, date);
    if (in.failed() || ((days % 7) + 7) % 7 != weekday) return {}; // 2001-01-01 was a Monday
    return made(days, time - offset);
}

} // namespace Tessarin
