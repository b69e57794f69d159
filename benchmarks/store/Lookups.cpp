// F1 …: looking for one record among those that a context holds itself, unsaved or alive, beside rawbest.
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/store/RawBest.h"

#include <filesystem>
#include <fmt/format.h>

namespace Tessarin::benchmarks {
namespace {

std::string codeOf(std::size_t at) { return fmt::format("B{:08}", at); }
/// Each of half as many codes is asked for twice, scattered: the first time it is made, the second time it is found.
std::string codeOfTurn(std::size_t turn, std::size_t n) { return codeOf(turn * 7919 % (n / 2)); }

Ref<NSFetchRequest> requestFor(std::string const& code) {
    static auto const condition = NSPredicate::predicateWithFormat("code == $CODE");
    auto request = make<NSFetchRequest>("Book");
    request->setFetchLimit(1);
    request->setPredicate(condition->predicateWithSubstitutionVariables({{"CODE", code}}));
    return request;
}

bool isFound(NSManagedObjectContext& context, std::string const& code) {
    Ref<NSError> error;
    auto const found = context.executeFetchRequest(*requestFor(code), error);
    if (error) throw ErrorException(error);
    return !found.empty();
}

void insert(NSManagedObjectContext& context, std::string const& code) {
    context.insertObject<Book>()->set<std::string_view>(Book::code, code);
}

void require(bool holds) {
    if (!holds) throw std::runtime_error("a look-up found too much or too little");
}

/// Up to the disk.
Cost findOrCreate(std::string const& file, std::size_t n) {
    Stack stack(file, Synchronous::Normal);
    auto const worker = stack.makeWorker();
    std::size_t made = 0;
    auto const cost = costOf([&] {
        worker->performBlockAndWait([&] {
            for (std::size_t turn = 0; turn < n; ++turn) {
                auto const code = codeOfTurn(turn, n);
                if (isFound(*worker, code)) continue;
                insert(*worker, code);
                ++made;
            }
        });
        stack.saveToDisk(*worker);
    });
    require(made == n / 2);
    return cost;
}

Cost rawFindOrCreate(std::string const& file, std::size_t n) {
    BestDatabase database(file, Synchronous::Normal);
    sql::makeSchema(database);
    std::size_t made = 0;
    auto const cost = costOf([&] {
        database.begin();
        auto find = database.prepare("SELECT id FROM Book WHERE code = ?");
        auto create = database.prepare("INSERT INTO Book (code) VALUES (?)");
        for (std::size_t turn = 0; turn < n; ++turn) {
            auto const code = codeOfTurn(turn, n);
            find.bind(1, code);
            bool const isThere = find.step();
            find.reset();
            if (isThere) continue;
            create.bind(1, code);
            create.run();
            ++made;
        }
        database.commit();
    });
    require(made == n / 2);
    return cost;
}

constexpr std::size_t lookUps = 100;

/// Of stored books in a context that holds `unsaved` others.
Cost lookUpsBeside(Stack const& stack, std::size_t stored, std::size_t unsaved) {
    auto const worker = stack.makeWorker();
    Cost cost;
    worker->performBlockAndWait([&] {
        for (std::size_t at = 0; at < unsaved; ++at) insert(*worker, "unsaved " + codeOf(at));
        require(isFound(*worker, codeOf(0))); // what the first one prepares
        cost = costOf([&] {
            for (std::size_t at = 0; at < lookUps; ++at) require(isFound(*worker, codeOf(at * 7919 % stored)));
        });
    });
    return cost;
}

/// Of a context in which all of them are alive, by `anyObject` and by a fetch.
MedianCosts anyObjectOfAlive(Stack const& stack, std::size_t alive) {
    MedianCosts costs;
    auto const worker = stack.makeWorker();
    worker->performBlockAndWait([&] {
        auto const held = worker->allObjects<Book>();
        auto const codeAt = [&](std::size_t at) { return codeOf(at * 7919 % alive); };
        auto const any = [&](std::string const& code) {
            return worker->anyObject<Book>({.predicate = NSPredicate::predicateWithFormat("code == %@", code)}) != nullptr;
        };
        require(any(codeOf(1))); // what is kept once it was asked for
        auto const count = alive > 100'000 ? lookUps / 10 : lookUps;
        auto const costOfAll = [&](auto const& isThere) {
            return costOf([&] {
                for (std::size_t at = 0; at < count; ++at) require(isThere(codeAt(at)));
            });
        };
        costs = medianCosts(
            3, [&] { return costOfAll(any); },
            [&] { return costOfAll([&](auto const& code) { return isFound(*worker, code); }); });
    });
    return costs;
}

void fill(Stack& stack, std::size_t count) {
    auto const worker = stack.makeWorker();
    worker->performBlockAndWait([&] {
        for (std::size_t at = 0; at < count; ++at) insert(*worker, codeOf(at));
    });
    stack.saveToDisk(*worker);
}

std::string grouped(std::size_t number) {
    return number < 1'000'000 ? fmt::format("{},000", number / 1000) : fmt::format("{},000,000", number / 1'000'000);
}

} // namespace

void measureLookups(std::string const& folder, bool isScaled, Wants wants, AddCosts add) {
    int files = 0;
    auto const newFile = [&] { return (std::filesystem::path(folder) / fmt::format("lookups{}.db", ++files)).string(); };
    auto const creation = [&](char const* id, std::size_t n) {
        auto const what = fmt::format("{} found or created", grouped(n));
        if (!wants(id, what)) return;
        auto const costs = medianCosts(
            3, [&] { return findOrCreate(newFile(), n); }, [&] { return rawFindOrCreate(newFile(), n); });
        add({fmt::format("{} {}", id, what), "rawbest", 2}, costs);
    };
    creation("F1", 10'000);
    creation("F2", 50'000);
    if (auto const* what = "50,000 found or created / 5 x 10,000"; wants("F3", what))
        add({fmt::format("F3 {}", what), "5 x 10,000", 1.2},
            medianCosts(
                3, [&] { return findOrCreate(newFile(), 50'000); },
                [&] {
                    Cost five;
                    for (int each = 0; each < 5; ++each) {
                        auto const one = findOrCreate(newFile(), 10'000);
                        five = {five.wall + one.wall, five.processor + one.processor};
                    }
                    return five;
                }));
    if (auto const* what = "look-ups beside 10,000 unsaved"; wants("F4", what)) {
        constexpr std::size_t stored = 20'000;
        Stack stack(newFile(), Synchronous::Normal);
        fill(stack, stored);
        add({fmt::format("F4 {}", what), "with none", 1.5},
            medianCosts(
                5, [&] { return lookUpsBeside(stack, stored, 10'000); }, [&] { return lookUpsBeside(stack, stored, 0); }));
    }
    std::vector<std::pair<char const*, std::size_t>> sizes{{"F5", 10'000}, {"F6", 100'000}};
    if (isScaled) sizes.emplace_back("F7", 1'000'000);
    for (auto const& [id, alive] : sizes) {
        auto const what = fmt::format("anyObject by code, {} alive", grouped(alive));
        if (!wants(id, what)) continue;
        Stack stack(newFile(), Synchronous::Normal);
        fill(stack, alive);
        add({fmt::format("{} {}", id, what), "plain fetch", 2}, anyObjectOfAlive(stack, alive));
    }
}

} // namespace Tessarin::benchmarks
