#include "benchmarks/store/Run.h"

#include "benchmarks/store/Children.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <fmt/format.h>

namespace Tessarin::benchmarks {

Run::Run(RunOptions const& options, Session::Contenders const& contenders, Report& report)
    : options_(options), contenders_(contenders), report_(report), session_(makeSession(100'000, contenders)) {}

void Run::measureAll() {
    for (auto const& plan : rowPlans())
        if (wants(plan.id, plan.what)) measure(plan);
    if (wants("W14", "main queue")) measureMainQueue();
    measureFetchesDuringSave(FetchedEntity::Author, "W15", "fetches during a save, slower by");
    measureFetchesDuringSave(FetchedEntity::Book, "W15b", "the same of the saved entity");
    if (wants("W16", "batched fetch")) measureBatchedFetch();
    auto const wanted = [this](std::string const& id, std::string const& what) { return wants(id, what); };
    auto const add = [this](std::string const& row, double figure, double target) { addOwn(row, "x", figure, target); };
    measureUnsavedGrowth(options_.folder, wanted, add);
    measureWholeTables(options_.folder, wanted, add);
    measureMainThread(options_.folder, wanted, add);
    if (!options_.isOursAlone) measureGrowth();
}

bool Run::wants(std::string const& id, std::string const& what) const {
    return options_.only.empty() ? report_.wants("store", id + " " + what)
                                 : std::ranges::find(options_.only, id) != options_.only.end();
}

Session Run::makeSession(std::size_t books, Session::Contenders const& contenders) const {
    auto const folder = std::filesystem::path(options_.folder) / std::to_string(books);
    std::filesystem::create_directories(folder);
    return {books, folder, contenders};
}

void Run::measure(RowPlan const& plan) {
    auto const figures = session_.measure(plan, options_.runs ? options_.runs : plan.runs);
    if (!figures[0]) return; // not yet an operation of ours
    if (figures[1]) ratios_[plan.id] = *figures[0] / *figures[1];
    report_.add({.group = "store",
                 .row = fmt::format("{} {}", plan.id, plan.what),
                 .unit = plan.unit,
                 .ours = *figures[0],
                 .peer = contenderKinds[1].name,
                 .theirs = figures[1].value_or(0),
                 .target = figures[1] ? plan.target : 0,
                 .stretch = figures[1] ? plan.stretch : 0,
                 .others = {figures.begin() + firstPeer, figures.end()}});
}

void Run::addOwn(std::string const& row, char const* unit, double figure, double target, double stretch) {
    report_.add({.group = "store", .row = row, .unit = unit, .ours = figure, .target = target, .stretch = stretch});
}

void Run::measureMainQueue() {
    auto const library = Library::generate(125'000);
    auto const expected = checksumOf(library);
    auto const held = median(3, [&] {
        auto const reading = longestMainQueueHold(library, session_.fileFor(Start::Empty, *contenders_[0]));
        Session::check("W14", reading.checksum, expected);
        return reading.value;
    });
    addOwn("W14 main queue held, 5 saves of 25,000", "ms", held, 5, 2);
}

void Run::measureFetchesDuringSave(FetchedEntity entity, char const* id, char const* what) {
    if (!wants(id, what)) return;
    auto const expected = checksumOf(session_.work().library, session_.work().more);
    auto const slowdown = median(5, [&] {
        auto const reading = slowdownOfFetches(session_.work(), entity, session_.fileFor(Start::Empty, *contenders_[0]));
        Session::check(id, reading.checksum, expected);
        return reading.value;
    });
    addOwn(fmt::format("{} {}", id, what), "x", slowdown, 1.15);
}

void Run::measureBatchedFetch() {
    Session::Contenders ours;
    ours.push_back(makeOurs());
    auto session = makeSession(1'000'000, ours);
    auto const reading = measureInChild(ChildTask::BatchedFetch, *ours[0], session.fileFor(Start::Filled, *ours[0]));
    Session::check("W16", reading.checksum, sumOfTitles(session.work().library));
    addOwn("W16 1,000,000 in batches of 100, memory", "MiB", reading.value, 64);
}

/// How much the ratio to raw grows from the smallest library to the largest.
void Run::measureGrowth() {
    std::vector<RowPlan const*> plans;
    for (auto const* id : {"W1", "W3", "W4", "W5"})
        if (wants(fmt::format("{}-growth", id), "growth")) plans.push_back(&rowPlan(id));
    if (plans.empty()) return;

    Session::Contenders both;
    both.push_back(makeOurs());
    both.push_back(makeRaw());
    std::map<RowPlan const*, std::vector<double>> ratios;
    std::vector<std::size_t> sizes{10'000, 100'000};
    if (options_.isScaled) sizes.push_back(1'000'000);
    for (auto const size : sizes) {
        auto session = makeSession(size, both);
        for (auto const* plan : plans) {
            if (auto const known = ratios_.find(plan->id); size == 100'000 && known != ratios_.end()) {
                ratios[plan].push_back(known->second);
                continue;
            }
            auto const figures = session.measure(*plan, size > 100'000 ? 3 : 11);
            ratios[plan].push_back(*figures[0] / *figures[1]);
        }
    }
    for (auto const* plan : plans) {
        auto const& each = ratios[plan];
        std::string text;
        for (auto const ratio : each) text += fmt::format("{}{:.2f}", text.empty() ? "" : " > ", ratio);
        addOwn(fmt::format("{}-growth of the ratio: {}", plan->id, text), "x", each.back() / each.front(), 1.15);
    }
}

} // namespace Tessarin::benchmarks
