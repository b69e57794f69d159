// Collections that threads share, beside what one writes by hand: a mutex and a container.
#include "Tessarin/collections/ThreadsafeArray.h"
#include "Tessarin/collections/ThreadsafeDictionary.h"
#include "benchmarks/support/Threads.h"

#include <mutex>
#include <unordered_map>

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 7;

/// The peer: each operation under one lock.
class LockedVector {
public:
    long get(std::ptrdiff_t index) {
        std::lock_guard const hold(mutex_);
        return elements_.at(static_cast<std::size_t>(index));
    }
    void set(std::ptrdiff_t index, long value) {
        std::lock_guard const hold(mutex_);
        elements_.at(static_cast<std::size_t>(index)) = value;
    }
    void append(long value) {
        std::lock_guard const hold(mutex_);
        elements_.push_back(value);
    }

private:
    std::mutex mutex_;
    std::vector<long> elements_ = std::vector<long>(1024);
};

class LockedMap {
public:
    long get(std::string const& key) {
        std::lock_guard const hold(mutex_);
        return pairs_.at(key);
    }
    void set(std::string const& key, long value) {
        std::lock_guard const hold(mutex_);
        pairs_[key] = value;
    }

private:
    std::mutex mutex_;
    std::unordered_map<std::string, long> pairs_;
};

/// Measures one operation on both, on so many threads; containers are made anew for each run.
template <class Ours, class Theirs, class Operation>
void compare(Report& report, char const* group, std::string const& row, int threads, int count, Ours const& makeOurs,
             Theirs const& makeTheirs, Operation const& operation) {
    auto const name = row + (threads == 1 ? ", 1 thread" : ", " + std::to_string(threads) + " threads");
    if (!report.wants(group, name)) return;
    auto const measured = [&](auto const& container) {
        return secondsOnThreads(threads,
                                [&](int thread) {
                                    for (int i = 0; i < count; ++i) operation(*container, thread * count + i);
                                }) /
               (threads * count) * 1e9;
    };
    auto const result = medians(
        runs, [&] { return measured(makeOurs()); }, [&] { return measured(makeTheirs()); });
    report.add({.group = group,
                .row = name,
                .unit = "ns",
                .ours = result.ours,
                .peer = "mutex + container",
                .theirs = result.theirs,
                .target = threads == 1 ? 1.3 : 2.0});
}

void benchArray(Report& report, int threads, int count) {
    auto const ours = [] { return make<ThreadsafeArray<long>>(std::vector<long>(1024)); };
    auto const theirs = [] { return std::make_shared<LockedVector>(); };
    auto const compared = [&](char const* row, auto const& operation) {
        compare(report, "array", row, threads, count, ours, theirs, operation);
    };
    compared("get", [](auto& array, int i) {
        long value = 0;
        if constexpr (requires { array.slot(0); })
            value = array.slot(i & 1023);
        else
            value = array.get(i & 1023);
        touch(value);
    });
    compared("set", [](auto& array, int i) {
        if constexpr (requires { array.slot(0); })
            array[i & 1023] = i;
        else
            array.set(i & 1023, i);
    });
    compared("append", [](auto& array, int i) { array.append(i); });
}

void benchDictionary(Report& report, int threads, int count) {
    std::vector<std::string> keys;
    for (int i = 0; i < threads * count; ++i) keys.push_back("key " + std::to_string(i * 7919));
    auto const ours = [] { return make<ThreadsafeDictionary<std::string, long>>(); };
    auto const theirs = [] { return std::make_shared<LockedMap>(); };
    auto const filled = [&](auto const& made) {
        return [&, made] {
            auto container = made();
            for (int i = 0; i < 1024; ++i) {
                if constexpr (requires { container->slot(keys[0]); })
                    container->setSlot(keys[static_cast<std::size_t>(i)], i);
                else
                    container->set(keys[static_cast<std::size_t>(i)], i);
            }
            return container;
        };
    };
    auto const get = [&](auto& dictionary, int i) {
        auto const& key = keys[static_cast<std::size_t>(i & 1023)];
        long value = 0;
        if constexpr (requires { dictionary.slot(key); })
            value = dictionary.slot(key);
        else
            value = dictionary.get(key);
        touch(value);
    };
    auto const set = [&](std::size_t mask) {
        return [&keys, mask](auto& dictionary, int i) {
            auto const& key = keys[static_cast<std::size_t>(i) & mask];
            if constexpr (requires { dictionary.slot(key); })
                dictionary[key] = i;
            else
                dictionary.set(key, i);
        };
    };
    compare(report, "dictionary", "get", threads, count, filled(ours), filled(theirs), get);
    compare(report, "dictionary", "set", threads, count, filled(ours), filled(theirs), set(1023));
    compare(report, "dictionary", "insert", threads, count, ours, theirs, set(~std::size_t{0}));
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    for (auto const& [threads, count] : {std::pair(1, 400'000), std::pair(8, 60'000)}) {
        benchArray(report, threads, count);
        benchDictionary(report, threads, count);
    }
    return report.finish();
}
