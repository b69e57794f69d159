// The trace-event format: a list of events in microseconds, "X" for a slice on a thread's row, "b" and "e" for one on a row of
// its own, "i" for a mark.
#include "Tessarin/measurement/LastPathComponentPrivate.h"
#include "Tessarin/measurement/Timing.h"
#include "Tessarin/platform/foundation/json/JSON.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/foundation/values/UTF8Private.h"
#include "Tessarin/platform/runtime/NumberText.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <unistd.h>

namespace Tessarin {
namespace {

struct Slice {
    Ref<Timing> timing;
    std::int64_t start; // both in nanoseconds since the first start, as whole numbers: what nests must nest exactly
    std::int64_t end;
};

/// What is no moment at all is the first start.
std::int64_t nanosecondsBetween(NSDate origin, NSDate date) {
    constexpr double most = 9e18; // 285 years, within 64 bits
    auto const nanoseconds = date.timeIntervalSinceDate(origin) * 1e9;
    return std::isnan(nanoseconds) ? 0 : std::llround(std::clamp(nanoseconds, -most, most));
}

/// JSON knows no other numbers than finite ones.
Value secondsBetween(NSDate from, NSDate to) {
    auto const seconds = to.timeIntervalSinceDate(from);
    return std::isfinite(seconds) ? Value(seconds) : Value(shortestText(seconds));
}

double microseconds(std::int64_t nanoseconds) { return static_cast<double>(nanoseconds) / 1000; }

std::vector<Slice> slicesOf(std::vector<Ref<Timing>> const& timings, NSDate origin, NSDate now) {
    std::vector<Slice> slices;
    for (auto const& timing : timings) {
        auto const start = nanosecondsBetween(origin, timing->start());
        slices.push_back({timing, start, std::max(start, nanosecondsBetween(origin, timing->finish().value_or(now)))});
    }
    std::ranges::stable_sort(slices, [](Slice const& a, Slice const& b) { // outer ones before what is inside
        return a.start != b.start ? a.start < b.start : a.end > b.end;
    });
    return slices;
}

class Trace {
public:
    explicit Trace(NSDate origin) : origin_(origin) {}

    void add(Slice const& slice) {
        auto& open = open_[slice.timing->thread()]; // the ends of the slices on this row that are not over yet
        while (!open.empty() && open.back() <= slice.start) open.pop_back();
        if (open.empty() || slice.end <= open.back()) {
            open.push_back(slice.end);
            auto complete = event(slice, "X", slice.start);
            complete.set("dur", microseconds(slice.end - slice.start));
            events_.push_back(std::move(complete));
        } else {
            addOnOwnRow(slice);
        }
        addLaps(slice);
    }

    Value document() && {
        return Dictionary{{"traceEvents", std::move(events_)},
                          {"displayTimeUnit", "ms"},
                          {"otherData", Dictionary{{"start", origin_.description()}}}};
    }

private:
    static Dictionary event(Slice const& slice, char const* phase, std::int64_t at) {
        auto const& timing = *slice.timing;
        return {
            {"name", timing.title().empty() ? "timing" : wellFormedUTF8(timing.title())},
            {"cat", "timing"},
            {"ph", phase},
            {"ts", microseconds(at)},
            {"pid", ::getpid()},
            {"tid", timing.thread()},
            {"args", Dictionary{{"file", wellFormedUTF8(lastPathComponent(timing.filename()))}, {"running", !timing.finish()}}}};
    }

    void addOnOwnRow(Slice const& slice) {
        ++rows_;
        for (auto const& [phase, at] : {std::pair("b", slice.start), {"e", slice.end}}) {
            auto half = event(slice, phase, at);
            half.set("id", rows_);
            events_.push_back(std::move(half));
        }
    }

    void addLaps(Slice const& slice) {
        int number = 0;
        for (auto previous = slice.timing->start(); auto const& lap : slice.timing->laps()) {
            ++number;
            auto mark = event(slice, "i", nanosecondsBetween(origin_, lap.date));
            mark.set("name", wellFormedUTF8(lap.note.value_or("lap " + std::to_string(number))));
            mark.set("cat", "lap");
            mark.set("s", "t"); // as high as its thread's row
            mark.set("args", Dictionary{{"timing", wellFormedUTF8(slice.timing->title())},
                                        {"seconds", secondsBetween(previous, lap.date)}});
            events_.push_back(std::move(mark));
            previous = lap.date;
        }
    }

    NSDate origin_;
    std::map<std::int64_t, std::vector<std::int64_t>> open_; // by thread
    int rows_ = 0;
    List events_;
};

} // namespace

void Timing::writeTraceToURL(NSURL const& url) {
    std::vector<Ref<Timing>> timings;
    for (auto const& [title, timing] : activeTimes()) timings.push_back(timing);
    writeTraceToURL(url, timings);
}

void Timing::writeTraceToURL(NSURL const& url, std::vector<Ref<Timing>> const& timings) {
    NSDate const now;
    auto origin = now;
    for (auto const& timing : timings) origin = origin.earlierDate(timing->start());
    Trace trace(origin);
    for (auto const& slice : slicesOf(timings, origin, now)) trace.add(slice);
    NSData::dataWithText(JSON::text(std::move(trace).document())).writeToURL(url);
}

} // namespace Tessarin
