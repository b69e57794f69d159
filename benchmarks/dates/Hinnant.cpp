#include "benchmarks/dates/Peers.h"

#ifdef TESSARIN_HAS_DATE_TZ
#include <date/tz.h>
#include <sstream>

namespace Tessarin::benchmarks {
namespace {

using namespace std::chrono;

std::int64_t number(date::sys_seconds time) { return time.time_since_epoch().count() - 978'307'200; }

class Hinnant : public DatePeer {
public:
    std::int64_t components(std::size_t index) override {
        auto const wall = local(index);
        auto const day = floor<date::days>(wall);
        date::year_month_day const civil{day};
        date::hh_mm_ss const time{wall - day};
        return int{civil.year()} + static_cast<int>(unsigned{civil.month()}) + static_cast<int>(unsigned{civil.day()}) +
               time.hours().count() + time.minutes().count() + time.seconds().count() +
               static_cast<int>(date::weekday{day}.c_encoding()) + 1;
    }
    std::int64_t addDay(std::size_t index) override { return instant(local(index) + date::days{1}); }
    std::int64_t addMonth(std::size_t index) override {
        auto const wall = local(index);
        auto const day = floor<date::days>(wall);
        auto sum = date::year_month_day{day} + date::months{1};
        if (!sum.ok()) sum = sum.year() / sum.month() / date::last;
        return instant(date::local_days{sum} + (wall - day));
    }
    std::int64_t fromComponents(std::size_t index) override {
        auto const& [year, month, day, hour, minute, second] = walls()[index];
        auto const date = date::year{year} / month / day;
        return instant(date::local_days{date} + hours{hour} + minutes{minute} + seconds{second});
    }
    std::int64_t parseISO(std::string const& text) override {
        std::istringstream in(text);
        date::sys_time<milliseconds> time;
        in >> date::parse("%FT%T%z", time);
        return number(floor<seconds>(time));
    }
    std::int64_t parseRFC822(std::string const& text) override {
        std::istringstream in(text);
        date::sys_seconds time;
        in >> date::parse("%a, %d %b %Y %T %z", time);
        return number(time);
    }

private:
    date::local_seconds local(std::size_t index) const { return zone_->to_local(date::sys_seconds{seconds{instants()[index]}}); }
    std::int64_t instant(date::local_seconds wall) const { return number(zone_->to_sys(wall, date::choose::earliest)); }

    date::time_zone const* zone_ = date::locate_zone("Europe/Berlin");
};

} // namespace
std::unique_ptr<DatePeer> makeHinnant() { return std::make_unique<Hinnant>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::DatePeer> Tessarin::benchmarks::makeHinnant() { return nullptr; }
#endif
