// Notifiers beside the signals of other libraries. Ours may be used from any thread; of the peers only Boost.Signals2 may.
#include "Tessarin/notifications/Notifier.h"
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"
#include "benchmarks/notifications/Peers.h"
#include "benchmarks/support/Threads.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 9;

class OurChannel : public Channel {
public:
    OurChannel() {
        static int number = 0;
        notifier_ = make<Notifier>("channel " + std::to_string(++number));
    }
    ~OurChannel() override { notifier_->setWatchers({}); }
    void add(long& heard) override {
        notifier_->watch({.block = [&heard](auto const&) { ++heard; }});
    }
    void post() override { notifier_->notify({.forceCurrentThread = true}); }
    Notifier& notifier() { return *notifier_; }

private:
    Ref<Notifier> notifier_;
};
std::unique_ptr<Channel> makeOurChannel() { return std::make_unique<OurChannel>(); }

/// Ours, Boost's, then the report's other peers.
constexpr ChannelMaker makers[] = {makeOurChannel, makeBoostChannel, makeQtChannel, makeSigcChannel, makeGLibChannel};
using Figures = std::vector<std::optional<double>>;

/// Every library in turn, so that all meet the same machine; the medians.
template <class Measure> Figures measured(Measure const& measure) {
    std::vector<std::vector<double>> values(std::size(makers));
    for (int run = 0; run < runs; ++run)
        for (std::size_t at = 0; at < std::size(makers); ++at)
            if (auto const figure = measure(makers[at])) values[at].push_back(*figure);
    Figures figures;
    for (auto& all : values) {
        std::ranges::sort(all);
        figures.push_back(all.empty() ? std::nullopt : std::optional(all[all.size() / 2]));
    }
    return figures;
}

template <class Measure>
void addRow(Report& report, std::string const& row, char const* unit, double bar, Bound bound, Measure const& measure) {
    if (!report.wants("notifications", row)) return;
    auto figures = measured(measure);
    report.add({.group = "notifications",
                .row = row,
                .unit = unit,
                .ours = *figures[0],
                .peer = "Boost.Signals2",
                .theirs = figures[1].value_or(0),
                .target = bar,
                .bound = bound,
                .others = {figures.begin() + 2, figures.end()}});
}

long heard = 0;

std::optional<double> postTo(ChannelMaker make, int listeners) {
    auto const channel = make();
    if (!channel) return {};
    for (int i = 0; i < listeners; ++i) channel->add(heard);
    auto const before = heard;
    int const count = std::max(1000, 200'000 / listeners);
    auto const each = nanoseconds(count, [&] { channel->post(); });
    if (heard - before != static_cast<long>(count) * listeners) std::abort(); // somebody was not called
    return each;
}

std::optional<double> add(ChannelMaker make) {
    if (auto const warm = make(); !warm)
        return {};
    else
        for (int i = 0; i < 1000; ++i) warm->add(heard);
    auto const channel = make();
    return nanoseconds(1000, [&] { channel->add(heard); });
}

double residentBytes() {
    std::ifstream statm("/proc/self/statm");
    double total = 0, resident = 0;
    statm >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

/// The mean over four hundred channels of a thousand watchers, the channels included.
double bytesHere(ChannelMaker make) {
    constexpr int channelCount = 400, watcherCount = 1000;
    std::vector<std::unique_ptr<Channel>> channels;
    make()->add(heard); // what the first of all prepares
    auto const before = residentBytes();
    for (int each = 0; each < channelCount; ++each) {
        auto& channel = *channels.emplace_back(make());
        for (int i = 0; i < watcherCount; ++i) channel.add(heard);
    }
    return (residentBytes() - before) / channelCount / watcherCount;
}

/// In a process of its own, where no other row has left memory that serves again.
std::optional<double> bytes(ChannelMaker make) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    if (fork() == 0) {
        auto const figure = make() ? bytesHere(make) : -1.0;
        _exit(write(ends[1], &figure, sizeof figure) == sizeof figure ? 0 : 1);
    }
    close(ends[1]);
    double figure = 0;
    if (read(ends[0], &figure, sizeof figure) != sizeof figure) std::abort();
    close(ends[0]);
    wait(nullptr);
    return figure < 0 ? std::nullopt : std::optional(figure);
}

std::optional<double> postByHandle(ChannelMaker make) {
    std::vector<std::unique_ptr<Channel>> channels;
    for (int i = 0; i < 10'000; ++i) {
        channels.push_back(make());
        if (!channels.back()) return {};
        channels.back()->add(heard);
    }
    for (auto const& channel : channels) channel->post(); // what a first post prepares is no part of the row
    std::size_t at = 0;
    return nanoseconds(50'000, [&] { channels[at = (at + 1) % channels.size()]->post(); });
}

class Target : public NSObject {
public:
    void poked() { ++heard; }
    static SelectorTable selectors() { return {{"poked"_sel, &Target::poked}}; }
};

/// The least that holding something weakly costs: a lock, and a call of what it holds.
double lockOfWeak() {
    static auto const held = std::make_shared<std::function<void()>>([] { ++heard; });
    static std::weak_ptr<std::function<void()>> const weakly = held;
    return nanoseconds(200'000, [] {
        if (auto const strongly = weakly.lock()) (*strongly)();
    });
}

/// What the peers of one row do not offer: weakly held targets and tied blocks.
template <class Watch> void ownRow(Report& report, char const* row, double bar, Watch const& watch) {
    if (!report.wants("notifications", row)) return;
    constexpr int watchers = 100;
    auto const target = make<Target>();
    auto const ours = [&] {
        OurChannel channel;
        for (int i = 0; i < watchers; ++i) watch(channel.notifier(), target);
        return nanoseconds(2000, [&] { channel.post(); }) / watchers;
    };
    auto const both = medians(runs, ours, lockOfWeak);
    report.add({.group = "notifications",
                .row = row,
                .unit = "ns",
                .ours = both.ours,
                .peer = "std::weak_ptr",
                .theirs = both.theirs,
                .target = bar});
}

/// How much longer four times as many take that leave one after the other.
void growthRow(Report& report, char const* row, FunctionRef<void(int)> comeAndLeave) {
    if (!report.wants("notifications", row)) return;
    constexpr int some = 10'000;
    auto const seconds = [&](int count) { return median(runs, [&] { return secondsOf([&] { comeAndLeave(count); }); }); };
    auto const one = seconds(some);
    report.add({.group = "notifications", .row = row, .unit = "times", .ours = seconds(4 * some) / one, .target = 4.6});
}

void leaveAsConnections(int count) {
    auto const notifier = make<Notifier>("connections");
    std::vector<Notifier::Connection> connections;
    for (int at = 0; at < count; ++at) connections.push_back(notifier->connect({.block = [](auto const&) { ++heard; }}));
    connections.clear();
    notifier->serializer()->waitUntilAllOperationsAreFinished();
}

void leaveByName(int count) {
    auto const& centre = NSNotificationCenter::defaultCenter();
    auto const target = make<Target>();
    auto const name = [](int at) { return "name " + std::to_string(at); };
    for (int at = 0; at < count; ++at) centre->addObserver(target, "poked"_sel, name(at));
    for (int at = 0; at < count; ++at) centre->removeObserver(*target, name(at));
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin;
    using namespace Tessarin::benchmarks;
    NSBundle::mainBundle()->setBundleIdentifier("org.example.benchmark");
    std::thread([] {}).join(); // glibc is quicker while a process has but one thread
    Report report(argc, argv, {"Qt 6", "sigc++", "GLib"});
    addRow(report, "memory of a watcher", "bytes", 256, Bound::Ours, bytes); // first, while no queue has threads
    addRow(report, "post to 1", "ns", 0.7, Bound::Ratio, [](auto make) { return postTo(make, 1); });
    addRow(report, "post to 10", "ns", 0.27, Bound::Ratio, [](auto make) { return postTo(make, 10); });
    addRow(report, "post to 1,000, each", "ns", 0.17, Bound::Ratio, [](auto make) -> std::optional<double> {
        auto const all = postTo(make, 1000);
        return all ? std::optional(*all / 1000) : std::nullopt;
    });
    addRow(report, "add", "ns", 0.45, Bound::Ratio, add);
    addRow(report, "post by handle, 10,000 names", "ns", 0.36, Bound::Ratio, postByHandle);
    ownRow(report, "message to a weakly held target, each", 1.8,
           [](Notifier& notifier, auto const& target) { notifier.watch({.target = target, .message = "poked"_sel}); });
    ownRow(report, "tied block, each", 1.8, [](Notifier& notifier, auto const& target) {
        notifier.watch({.tiedTo = target, .block = [](auto const&) { ++heard; }});
    });
    growthRow(report, "n connections end: 4 n / n", leaveAsConnections);
    growthRow(report, "n names are left one by one: 4 n / n", leaveByName);
    return report.finish();
}
