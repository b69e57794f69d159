// A long job with a bar: a situation whose conditions are counted in a state beside it, and a watcher that draws the state.
#include "Tessarin/Tessarin.h"

#include <algorithm>
#include <cstdio>

using namespace Tessarin;
namespace {

struct Counts {
    std::int64_t completed = 0;
    std::int64_t pending = 0;
    bool operator==(Counts const&) const = default;
};

/// A situation that can be watched: its counts are published from the queue they belong to.
class WatchedSituation : public Situation {
public:
    Ref<GlobalState<Counts>> const counts = make<GlobalState<Counts>>(Counts{}, "Progress");

    using Situation::addCondition;
    void addCondition(Ref<Condition> condition) override {
        Situation::addCondition(std::move(condition));
        syncQueue()->async([self = self()] { self->publish(); });
    }
    void fulfill(Ref<Condition> condition) override {
        Situation::fulfill(std::move(condition));
        syncQueue()->async([self = self()] { self->publish(); });
    }
    /// On `syncQueue`; what was published already is not published again.
    void publish() { counts->setCurrent({completedCount(), pendingCount()}); }

private:
    Ref<WatchedSituation> self() { return std::static_pointer_cast<WatchedSituation>(shared_from_this()); }
};

void draw(Counts const& counts) {
    constexpr std::int64_t width = 40;
    auto const all = std::max<std::int64_t>(1, counts.completed + counts.pending);
    auto const done = static_cast<std::size_t>(width * counts.completed / all);
    std::printf("\r[%s%s] %lld of %lld", std::string(done, '#').c_str(), std::string(width - done, ' ').c_str(),
                static_cast<long long>(counts.completed), static_cast<long long>(all));
    std::fflush(stdout);
}

/// Some work: how many primes there are below a number.
int primesBelow(int end) {
    int count = 0;
    for (int number = 2; number < end; ++number) {
        bool isPrime = true;
        for (int divisor = 2; isPrime && divisor * divisor <= number; ++divisor) isPrime = number % divisor != 0;
        count += isPrime;
    }
    return count;
}

} // namespace

int main() {
    NSBundle::mainBundle()->setBundleIdentifier("org.example.progress");
    auto const job = make<WatchedSituation>();
    job->counts->watchValue([](Counts const& counts) { draw(counts); }); // on the state's serializer, never two at once

    auto const primes = make<ThreadsafeArray<int>>();
    job->setCompletion([kept = WeakRef<WatchedSituation>(job), primes] { // what a job keeps must not keep the job
        auto const alive = kept.lock();
        if (!alive) return;
        alive->publish();
        alive->counts->serializer()->addOperationWithBlock([primes] { // behind the last drawing
            std::printf("\n%d primes below 59000\n", *primes->last());
            dispatch_async_main([] { stopMainLoop(); });
        });
    });
    // Added from the work of one, so that some are pending until all have been added.
    job->addCondition([kept = WeakRef<WatchedSituation>(job), primes] {
        auto const alive = kept.lock();
        for (int step = 1; alive && step < 60; ++step)
            alive->addCondition([primes, step] { primes->append(primesBelow(step * 1000)); });
    });
    runMainLoop();
}
