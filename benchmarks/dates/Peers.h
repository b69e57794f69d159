#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Tessarin::benchmarks {

/// What is measured, on dates in Europe/Berlin that are prepared in each peer's own form. Each operation works on the date of
/// that index and gives a number that depends on all of its result, so that nothing can be left out.
class DatePeer {
public:
    virtual ~DatePeer() = default;
    virtual std::int64_t components(std::size_t index) = 0; // all seven
    virtual std::int64_t addDay(std::size_t index) = 0;
    virtual std::int64_t addMonth(std::size_t index) = 0;
    virtual std::int64_t fromComponents(std::size_t index) = 0;
    virtual std::int64_t parseISO(std::string const& text) = 0;
    virtual std::int64_t parseRFC822(std::string const& text) = 0;
};

/// Seconds since 1970.
std::vector<std::int64_t> const& instants();
struct Civil {
    int year, month, day, hour, minute, second;
};
/// The wall times of these.
std::vector<Civil> const& walls();

std::unique_ptr<DatePeer> makeOurs();
/// Null where the peer's package is not installed.
std::unique_ptr<DatePeer> makeICU();
std::unique_ptr<DatePeer> makeQt();
std::unique_ptr<DatePeer> makeHinnant();

} // namespace Tessarin::benchmarks
