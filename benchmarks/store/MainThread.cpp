// M1 …: what a user interface asks on the main thread beside an import, and what raw SQLite answers on a connection of its own
// beside a raw import: the time that 99 of 100 questions stay below.
#include "Tessarin/platform/queues/DispatchMain.h"
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/store/RawDatabase.h"
#include "benchmarks/store/SQLWriting.h"
#include "benchmarks/support/Report.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <thread>

namespace Tessarin::benchmarks {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t stored = 100'000, batch = 25'000, batches = 5;
constexpr int rounds = 3; // a round gives some hundred answers

struct Question {
    char const* id;
    char const* what;
    double target;
};
constexpr std::array<Question, 4> questions{{{"M1", "look-up by code beside an import, p99", 2},
                                             {"M2", "count by year beside an import, p99", 2},
                                             {"M3", "first 20 by code beside an import, p99", 2},
                                             {"M4", "save of one to disk beside an import, p99", 3}}};
using Times = std::array<std::vector<double>, questions.size()>; // in ms

double percentile99(std::vector<double>& times) {
    std::ranges::sort(times);
    return times.empty() ? 0 : times[times.size() * 99 / 100];
}

Library const& library() {
    static auto const shared = Library::generate(stored + batch * batches);
    return shared;
}
std::span<Library::Book const> books(std::size_t first, std::size_t count) {
    return std::span(library().books).subspan(first, count);
}

/// Asks the first three questions in turn until `isDone`, a moment apart; a thread of its own asks the fourth meanwhile.
void ask(Times& times, std::atomic<bool> const& isDone, auto const& question, auto const& save) {
    std::atomic<bool> hasSaved = false;
    std::thread saver([&] {
        while (!isDone) {
            times[3].push_back(secondsOf(save) * 1000);
            std::this_thread::sleep_for(5ms);
        }
        hasSaved = true;
    });
    for (std::size_t turn = 0; !isDone || !hasSaved; ++turn) {
        drainMainQueue(); // which saves need
        for (std::size_t which = 0; which < 3 && !isDone; ++which)
            times[which].push_back(secondsOf([&] { question(which, turn); }) * 1000);
        std::this_thread::sleep_for(1ms);
    }
    saver.join();
}

Ref<NSFetchRequest> requestFor(std::size_t which, std::size_t turn) {
    auto request = make<NSFetchRequest>("Book");
    if (which == 0)
        request->setPredicate(NSPredicate::predicateWithFormat("code == %@", library().books[turn * 7919 % stored].code));
    else if (which == 1)
        request->setPredicate(NSPredicate::predicateWithFormat("year == %@", 1924 + static_cast<int>(turn % 100)));
    else {
        request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("code", {})});
        request->setFetchLimit(20);
    }
    return request;
}

void askOurs(std::string const& file, Synchronous synchronous, Times& times) {
    Stack const stack(file, synchronous);
    auto const importing = stack.makeWorker(), saving = stack.makeWorker();
    std::atomic<bool> isDone = false;
    std::thread import([&] {
        std::unique_ptr<LibraryInserter> inserter;
        for (std::size_t at = 0; at < batches; ++at) {
            importing->performBlockAndWait([&] {
                if (!inserter)
                    inserter = std::make_unique<LibraryInserter>(*importing, library(), LibraryInserter::Start::Filled);
                inserter->insertBooks(books(stored + at * batch, batch));
                saveOrThrow(*importing);
            });
            stack.main->performBlock([&stack] {
                saveOrThrow(*stack.main);
                stack.root->performBlock([root = stack.root] { saveOrThrow(*root); });
            });
        }
        importing->performBlockAndWait([&] { inserter = nullptr; });
        stack.main->performBlockAndWait([] {});
        stack.root->performBlockAndWait([] {});
        isDone = true;
    });
    auto const question = [&](std::size_t which, std::size_t turn) {
        Ref<NSError> error;
        auto const request = requestFor(which, turn);
        if (which == 1 ? stack.main->countForFetchRequest(*request, error) <= 0
                       : stack.main->executeFetchRequest(*request, error).empty())
            throw std::runtime_error("nothing was found");
    };
    ask(times, isDone, question, [&] {
        saving->performBlockAndWait([&] {
            saving->insertObject<Tag>()->set<std::string_view>(Tag::name, "late");
            Ref<NSError> error;
            if (!saving->saveThrough(error)) throw ErrorException(error);
        });
    });
    import.join();
}

void askRaw(std::string const& file, Synchronous synchronous, Times& times) {
    std::atomic<bool> isDone = false;
    auto const opened = [&] {
        auto database = std::make_unique<RawDatabase>(file, synchronous);
        database->execute("PRAGMA busy_timeout = 60000");
        return database;
    };
    std::thread import([&] {
        auto const database = opened();
        sql::Inserter<RawDatabase> inserter(*database);
        inserter.findAuthorsAndTags(library());
        for (std::size_t at = 0; at < batches; ++at)
            sql::inTransaction(*database, [&] { inserter.insertBooks(books(stored + at * batch, batch)); });
        isDone = true;
    });
    auto const reading = opened(), saving = opened();
    std::array statements{reading->prepare("SELECT * FROM Book WHERE code = ?"),
                          reading->prepare("SELECT count(*) FROM Book WHERE year = ?"),
                          reading->prepare("SELECT * FROM Book ORDER BY code LIMIT 20")};
    auto const question = [&](std::size_t which, std::size_t turn) {
        auto& statement = statements[which];
        if (which == 0) statement.bind(1, library().books[turn * 7919 % stored].code);
        if (which == 1) statement.bind(1, static_cast<std::int64_t>(1924 + turn % 100));
        bool isFound = false;
        while (statement.step()) isFound = true;
        statement.reset();
        if (!isFound) throw std::runtime_error("nothing was found");
    };
    ask(times, isDone, question, [&] { saving->execute("INSERT INTO Tag (name) VALUES ('late')"); });
    import.join();
}

/// Files with the first books, one of ours and one of raw SQLite's.
void fillFiles(std::string const& ours, std::string const& raw) {
    {
        Stack stack(ours, Synchronous::Normal);
        auto const worker = stack.makeWorker();
        worker->performBlockAndWait(
            [&] { LibraryInserter(*worker, library(), LibraryInserter::Start::Empty).insertBooks(books(0, stored)); });
        stack.saveToDisk(*worker);
    }
    RawDatabase database(raw, Synchronous::Normal);
    sql::makeSchema(database);
    sql::Inserter<RawDatabase> inserter(database);
    sql::inTransaction(database, [&] {
        inserter.insertAuthorsAndTags(library());
        inserter.insertBooks(books(0, stored));
    });
}

std::string copyOf(std::string const& file) {
    auto const copy = file + ".copy";
    for (char const* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(copy + suffix);
    std::filesystem::copy_file(file, copy);
    return copy;
}

} // namespace

void measureMainThread(std::string const& folder, Synchronous synchronous, Wants wants, AddRatio add) {
    if (std::ranges::none_of(questions, [&](auto const& each) { return wants(each.id, each.what); })) return;
    auto const ours = (std::filesystem::path(folder) / "main-ours.db").string();
    auto const raw = (std::filesystem::path(folder) / "main-raw.db").string();
    for (auto const& file : {ours, raw}) std::filesystem::remove(file);
    fillFiles(ours, raw);
    Times oursTimes, rawTimes;
    for (int round = 0; round < rounds; ++round) {
        askOurs(copyOf(ours), synchronous, oursTimes);
        askRaw(copyOf(raw), synchronous, rawTimes);
    }
    for (std::size_t at = 0; at < questions.size(); ++at) {
        auto const mine = percentile99(oursTimes[at]), theirs = percentile99(rawTimes[at]);
        add(fmt::format("{} {}: {:.1f} ms, raw {:.1f}", questions[at].id, questions[at].what, mine, theirs), mine / theirs,
            questions[at].target);
    }
}

} // namespace Tessarin::benchmarks
