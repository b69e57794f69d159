#include "Tessarin/measurement/Timing.h"

#include "Tessarin/measurement/LastPathComponentPrivate.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/queues/DispatchOnce.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/NumberText.h"
#include "Tessarin/platform/runtime/SharedMapPrivate.h"

#include <fmt/format.h>

#include <ostream>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessarin {
namespace {

constexpr std::string_view clockSign = "\U0001F558";

SharedMap<Timing::ActiveTimes>& table() {
    static auto& shared = *new SharedMap<Timing::ActiveTimes>;
    return shared;
}

double average(NSDate start, Timing::Laps const& laps) {
    double sum = 0;
    for (auto previous = start; auto const& lap : laps) {
        sum += lap.date.timeIntervalSinceDate(previous);
        previous = lap.date;
    }
    return laps.empty() ? 0 : sum / static_cast<double>(laps.size());
}

/// A line per lap; `format` gets its number and the time since the one before.
template <class Format> std::string lapLines(NSDate start, Timing::Laps const& laps, Format const& format) {
    std::string lines;
    int number = 0;
    for (auto previous = start; auto const& lap : laps) {
        lines += format(++number, lap.date.durationStringRelativeTo(previous), lap);
        previous = lap.date;
    }
    return lines;
}

/// Asking the system costs more than all the rest of a start (benchmark "measurement").
std::int64_t threadNumber() {
    static thread_local std::int64_t const number = ::syscall(SYS_gettid);
    return number;
}

} // namespace

std::string_view lastPathComponent(std::string_view path) { return path.substr(path.rfind('/') + 1); }

Timing::Type& Timing::type() {
    static auto& shared = *new Type;
    return shared;
}

Ref<Timing> Timing::Type::start(std::string title, std::string file) {
    auto timing = make<Timing>(std::move(title), std::move(file));
    dispatch_async(queue(), [timing] { table().set(timing->title(), timing); });
    return timing;
}

Ref<Timing> Timing::Type::lap(std::optional<std::string> note, std::string const& key) {
    auto timing = table().find(key);
    if (timing) timing->lap(std::move(note));
    return timing;
}

void Timing::Type::stop(std::string const& key) {
    auto const timing = table().find(key);
    if (!timing) return;
    timing->stop();
    timing->log(); // and it stays registered, so that later laps and stops under the key still find it
}

void Timing::Type::time(std::optional<std::string> const& name, int iterations, FunctionRef<void()> block) {
    auto const timing = make<Timing>(NSUUID::UUID().UUIDString(), std::string{});
    for (int done = 0; done < iterations; ++done) {
        block();
        timing->lap();
    }
    // The queue is not waited for: a measurement must not hang on whatever else is timed. Late laps are missing.
    auto const laps = timing->laps();
    auto const line = [](int number, std::string const& duration, Lap const&) {
        return fmt::format("\n\t#{: 3d}.\t{}", number, duration);
    };
    print(
        fmt::format("{} {} average duration {} sec", clockSign, name.value_or(""), shortestText(average(timing->start(), laps))) +
        lapLines(timing->start(), laps, line));
}

Timing::ActiveTimes Timing::activeTimes() { return table().all(); }
void Timing::setActiveTimes(ActiveTimes times) { table().setAll(std::move(times)); }
void Timing::modifyActiveTimes(FunctionRef<void(ActiveTimes&)> change) {
    auto times = activeTimes();
    change(times);
    setActiveTimes(std::move(times));
}

dispatch_queue_t const& Timing::queue() {
    static dispatch_once_t once;
    static auto& shared = *new dispatch_queue_t;
    dispatch_once(&once, [] { shared = dispatch_queue_create("timing queue", DISPATCH_QUEUE_SERIAL); });
    return shared;
}

Timing::~Timing() = default;

void Timing::init(std::string key, std::string file) {
    title_ = std::move(key);
    filename_ = std::move(file);
    thread_ = threadNumber();
}

std::optional<NSDate> Timing::finish() const { return finish_.get(); }
void Timing::setFinish(std::optional<NSDate> finish) { finish_.set(finish); }
void Timing::modifyFinish(FunctionRef<void(std::optional<NSDate>&)> change) {
    auto value = finish();
    change(value);
    setFinish(value);
}

Timing::Laps Timing::laps() const { return laps_.get(); }
void Timing::setLaps(Laps laps) { laps_.set(std::move(laps)); }
void Timing::modifyLaps(FunctionRef<void(Laps&)> change) {
    auto value = laps();
    change(value);
    setLaps(std::move(value));
}

void Timing::lap(std::optional<std::string> note) {
    dispatch_async(queue(), [self = shared_from_this(), lap = Lap{std::move(note), NSDate{}}]() mutable {
        auto const& own = *self;
        if (typeid(own) == typeid(detail::Made<Timing>)) return self->laps_.append(std::move(lap));
        self->modifyLaps([&](Laps& laps) { laps.push_back(std::move(lap)); });
    });
}

void Timing::stop() { setFinish(NSDate{}); }

std::string Timing::logString() const {
    auto const end = finish().value_or(NSDate{});
    auto const line = [](int number, std::string const& duration, Lap const& lap) {
        return fmt::format("\n\t{}.\t{}\t{}", number, duration, lap.note.value_or(""));
    };
    return fmt::format("{} {}: {} in {}", clockSign, end.durationStringRelativeTo(start_), title_, lastPathComponent(filename_)) +
           lapLines(start_, laps(), line);
}

void Timing::log() const { print(logString()); }
std::string Timing::description() const { return logString(); }
double Timing::averageLapDuration() const { return average(start_, laps()); }

std::ostream& operator<<(std::ostream& out, Timing const& timing) { return out << timing.description(); }

} // namespace Tessarin
