#include "Tessarin/platform/foundation/time/CivilDate.h"

namespace Tessarin {
namespace {

// Inside, days count from 0000-03-01, so that the leap day ends a year; the two calendars begin that count two days apart.
constexpr std::int64_t gregorianOrigin = 730'791; // days from there to 2001-01-01
constexpr std::int64_t julianOrigin = 730'793;
constexpr std::int64_t firstGregorianDay = -152'750; // 1582-10-15

constexpr std::int64_t floorDivide(std::int64_t a, std::int64_t b) { return a / b - (a % b < 0); }

/// The year that begins in March, and the days since its first.
struct MarchDay {
    std::int64_t year, day;
};

MarchDay gregorianDay(std::int64_t days) {
    auto const era = floorDivide(days, 146'097); // 400 years
    auto const inEra = days - era * 146'097;
    auto const year = (inEra - inEra / 1'460 + inEra / 36'524 - inEra / 146'096) / 365;
    return {era * 400 + year, inEra - (365 * year + year / 4 - year / 100)};
}

MarchDay julianDay(std::int64_t days) {
    auto const era = floorDivide(days, 1'461); // 4 years
    auto const inEra = days - era * 1'461;
    auto const year = (inEra - inEra / 1'460) / 365;
    return {era * 4 + year, inEra - 365 * year};
}

} // namespace

std::int64_t daysFromCivil(CivilDate date) noexcept {
    auto const month = std::int64_t{date.month} - 3; // after March
    auto const carried = floorDivide(month, 12);
    auto const year = date.year + carried;
    auto const day = 365 * year + floorDivide(year, 4) + (153 * (month - carried * 12) + 2) / 5 + date.day - 1;
    auto const gregorian = day - floorDivide(year, 100) + floorDivide(year, 400) - gregorianOrigin;
    return gregorian >= firstGregorianDay ? gregorian : day - julianOrigin;
}

CivilDate civilFromDays(std::int64_t days) noexcept {
    auto const [year, day] = days >= firstGregorianDay ? gregorianDay(days + gregorianOrigin) : julianDay(days + julianOrigin);
    auto const month = (5 * day + 2) / 153;
    return {year + (month >= 10), static_cast<int>(month < 10 ? month + 3 : month - 9),
            static_cast<int>(day - (153 * month + 2) / 5 + 1)};
}

int daysInMonth(std::int64_t year, int month) noexcept {
    if (month != 2) return 30 + ((month + month / 8) & 1);
    bool const isLeap = year % 4 == 0 && (year < 1582 || year % 100 != 0 || year % 400 == 0);
    return isLeap ? 29 : 28;
}

} // namespace Tessarin
