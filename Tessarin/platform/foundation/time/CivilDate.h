#pragma once
#include "Tessarin/Export.h"
#include <cstdint>

namespace Tessarin {

/// A day of the Gregorian calendar, of the Julian one before 1582-10-15. Years count astronomically: 0 is 1 BC.
struct CivilDate {
    std::int64_t year = 2001;
    int month = 1; // 1 to 12
    int day = 1;   // 1 to 31

    friend bool operator==(CivilDate const&, CivilDate const&) = default;
};

/// Days since 2001-01-01. The month and the day may lie outside their ranges by less than 2^31: they carry over.
TESSARIN_API std::int64_t daysFromCivil(CivilDate date) noexcept;
TESSARIN_API CivilDate civilFromDays(std::int64_t days) noexcept;
TESSARIN_API int daysInMonth(std::int64_t year, int month) noexcept;

} // namespace Tessarin
