// W19: how soon one process has what another one saved, and what it costs to wait for that.
#include "benchmarks/store/Children.h"
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

namespace Tessarin::benchmarks {
namespace {

constexpr int saves = 50;

/// Of one clock for all processes, in ms; a book's price bears it.
double now() { return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

Ref<Book> firstBook(NSManagedObjectContext& context) {
    return context.allObjects<Book>({.predicate = NSPredicate::predicateWithFormat("year < %d", changedBefore)}).front();
}

/// How often this process's other threads have gone to sleep so far: each had been woken.
double sleepsOfOtherThreads() {
    double count = 0;
    auto const own = std::to_string(gettid());
    for (auto const& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        if (thread.path().filename() == own) continue;
        std::ifstream status(thread.path() / "status");
        for (std::string name; status >> name;)
            if (double value; name == "voluntary_ctxt_switches:" && status >> value) count += value;
    }
    return count;
}

} // namespace

Reading wakeUpsOfAnIdleSecond(std::string const& file) {
    Stack stack(file, Synchronous::Full, Stack::History::Merged);
    stack.root->performBlockAndWait([&] { firstBook(*stack.root); });
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // what opening it has begun ends
    auto const before = sleepsOfOtherThreads();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    return {.value = sleepsOfOtherThreads() - before};
}

Reading saveForOthers(std::string const& file) {
    Stack stack(file, Synchronous::Full, Stack::History::Kept);
    stack.root->performBlockAndWait([&] {
        auto const book = firstBook(*stack.root);
        for (int save = 0; save < saves; ++save) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20)); // as somebody types
            book->set(Book::price, now());
            saveOrThrow(*stack.root);
        }
    });
    return {};
}

Reading delayOfOthersSaves(Contender& ours, std::string const& file) {
    std::vector<double> delays;
    {
        Stack stack(file, Synchronous::Full, Stack::History::Merged);
        ScopedConnection connection;
        Ref<Book> book;
        stack.root->performBlockAndWait([&] {
            book = firstBook(*stack.root);
            connection = book->observe(Book::price, [&](double, double savedAt) { delays.push_back(now() - savedAt); });
        });
        measureInChild(ChildTask::SaveForOthers, ours, file);
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the last one's
        stack.root->performBlockAndWait([&] { connection.end(), book = nullptr; });
    }
    if (delays.size() < saves / 2) throw std::runtime_error("another process's saves are not shown");
    std::ranges::sort(delays);
    return {.value = delays[delays.size() / 2], .wall = delays.back()};
}

} // namespace Tessarin::benchmarks
