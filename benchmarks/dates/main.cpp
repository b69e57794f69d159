// Dates in Europe/Berlin, over the years 1970 to 2036 in no order (then the peers' tables end), beside ICU with everything
// cached, Qt and Hinnant's library.
#include "Tessarin/platform/foundation/time/NSCalendar.h"
#include "benchmarks/dates/Peers.h"
#include "benchmarks/support/Threads.h"

#include <cstdlib>
#include <fmt/format.h>
#include <random>
#include <unordered_map>

namespace Tessarin::benchmarks {

constexpr int runs = 9;
constexpr std::size_t count = 4096;

std::vector<std::int64_t> const& instants() {
    static auto const all = [] {
        std::mt19937_64 random(1);
        std::vector<std::int64_t> made(count);
        for (auto& each : made) // around noon, when no clock jumps
            each = static_cast<std::int64_t>(random() % 24'400) * 86'400 + 36'000 + static_cast<std::int64_t>(random() % 14'400);
        return made;
    }();
    return all;
}

std::vector<Civil> const& walls() {
    static auto const all = [] {
        std::vector<Civil> made;
        for (auto const instant : instants()) {
            auto const date = NSDate::dateWithTimeIntervalSince1970(static_cast<double>(instant));
            made.push_back({static_cast<int>(date.year()), static_cast<int>(date.month().rawValue()),
                            static_cast<int>(date.day()), static_cast<int>(date.hour()), static_cast<int>(date.minute()),
                            static_cast<int>(date.second())});
        }
        return made;
    }();
    return all;
}

namespace {

std::vector<std::string> texts(bool isMail) {
    static constexpr char const* days[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    static constexpr char const* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::vector<std::string> made;
    for (std::size_t at = 0; at < count; ++at) {
        auto const& [year, month, day, hour, minute, second] = walls()[at];
        auto const weekday = (instants()[at] / 86'400 + 3) % 7;
        if (isMail)
            made.push_back(fmt::format("{}, {:02} {} {} {:02}:{:02}:{:02} +0100", days[weekday], day, months[month - 1], year,
                                       hour, minute, second));
        else
            made.push_back(fmt::format("{}-{:02}-{:02}T{:02}:{:02}:{:02}.250+0100", year, month, day, hour, minute, second));
    }
    return made;
}

template <class Operation> double nanosecondsOfEach(DatePeer& peer, Operation const& operation) {
    std::int64_t sum = 0;
    auto const seconds = secondsOf([&] {
        for (std::size_t at = 0; at < count; ++at) sum += operation(peer, at);
    });
    touch(sum);
    return seconds / count * 1e9;
}

/// Ours beside every peer, each in turn. Where one gives other numbers, the row says less.
template <class Operation> void compare(Report& report, char const* row, double target, Operation const& operation) {
    if (!report.wants("dates", row)) return;
    auto const ours = makeOurs();
    std::unique_ptr<DatePeer> peers[] = {makeICU(), makeQt(), makeHinnant()};
    for (auto const& peer : peers)
        for (std::size_t at = 0; peer && at < count; ++at)
            if (operation(*peer, at) != operation(*ours, at)) {
                fmt::print(stderr, "{}: a peer disagrees on {}: {} and {}\n", row, instants()[at], operation(*ours, at),
                           operation(*peer, at));
                break;
            }
    std::vector<std::optional<double>> others;
    Medians icu{};
    for (auto const& peer : peers) {
        auto const measured = medians(
            runs, [&] { return nanosecondsOfEach(*ours, operation); },
            [&] { return peer ? nanosecondsOfEach(*peer, operation) : 0; });
        if (&peer == &peers[0])
            icu = measured;
        else
            others.push_back(peer ? std::optional{measured.theirs} : std::nullopt);
    }
    report.add({.group = "dates",
                .row = row,
                .unit = "ns",
                .ours = icu.ours,
                .peer = "ICU, cached",
                .theirs = icu.theirs,
                .target = target,
                .others = others});
}

/// Beside the least that it could be: the text by {fmt}, with the word from a table.
template <class Format>
void benchAges(Report& report, char const* row, NSDateFormatterStyle style, std::string const& key, Format const& format) {
    if (!report.wants("ages", row)) return;
    std::unordered_map<std::string, std::string> const table{
        {"m", "m"}, {"h", "h"}, {"d", "d"}, {"min", "min"}, {"minutes", "minutes"}, {"hours", "hours"}, {"days", "days"}};
    std::size_t sizes = 0;
    auto const perText = [&](auto const& make) {
        auto const seconds = secondsOf([&] {
            for (int minute = 0; minute < 20'000; ++minute) sizes += make(2 + minute % 58).size();
        });
        touch(sizes);
        return seconds / 20'000 * 1e9;
    };
    auto const result = medians(
        runs, [&] { return perText([&](int minutes) { return NSDate::ageString(minutes * 60, style); }); },
        [&] { return perText([&](int minutes) { return format(minutes, table.find(key)->second); }); });
    report.add({.group = "ages",
                .row = row,
                .unit = "ns",
                .ours = result.ours,
                .peer = "{fmt} + look-up",
                .theirs = result.theirs,
                .target = 2});
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin;
    using namespace Tessarin::benchmarks;
    ::setenv("TZ", "Europe/Berlin", 1);
    ::setenv("LC_ALL", "C", 1);
    Report report(argc, argv, {"Qt", "date-tz"});
    // The ratios stand for 60, 60, 100, 60, 60 and 80 ns where ICU takes 383, 711, 1,820, 246, 5,516 and 11,108.
    compare(report, "seven components", 0.157, [](DatePeer& peer, std::size_t at) { return peer.components(at); });
    compare(report, "+ 1 day", 0.084, [](DatePeer& peer, std::size_t at) { return peer.addDay(at); });
    compare(report, "+ 1 month", 0.055, [](DatePeer& peer, std::size_t at) { return peer.addMonth(at); });
    compare(report, "from components", 0.244, [](DatePeer& peer, std::size_t at) { return peer.fromComponents(at); });
    auto const iso = texts(false), mail = texts(true);
    compare(report, "parse ISO 8601", 0.0109, [&](DatePeer& peer, std::size_t at) { return peer.parseISO(iso[at]); });
    compare(report, "parse RFC 822", 0.0072, [&](DatePeer& peer, std::size_t at) { return peer.parseRFC822(mail[at]); });
    benchAges(report, "ageString, short", NSDateFormatterStyle::Short, "m",
              [](int minutes, std::string const& word) { return fmt::format("{}{}", minutes, word); });
    benchAges(report, "ageString, full", NSDateFormatterStyle::Full, "minutes",
              [](int minutes, std::string const& word) { return fmt::format("{} {}", minutes, word); });
    return report.finish();
}
