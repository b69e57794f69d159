#include "benchmarks/store/Run.h"

#include "benchmarks/store/Children.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <fmt/format.h>

namespace Tessarin::benchmarks {

Run::Run(RunOptions const& options, Session::Contenders const& contenders, Report& report)
    : options_(options), contenders_(contenders), report_(report), session_(makeSession(100'000, contenders)) {}

std::vector<std::string> Run::columns() {
    std::vector<std::string> columns;
    for (auto const& kind : std::span(contenderKinds).subspan(firstPeer)) columns.emplace_back(kind.name);
    for (auto const* each : {"wall", "peer's", "ratio"}) columns.emplace_back(each);
    return columns;
}

void Run::measureAll() {
    for (auto const& plan : rowPlans())
        if (wants(plan.id, plan.what)) measure(plan);
    measureSizes();
    if (options_.synchronous == Synchronous::Full) measureOwnRows();
    measureMainThread(options_.folder, options_.synchronous, wanted_, add_);
    if (!options_.isOursAlone && options_.synchronous == Synchronous::Full) measureGrowth();
}

void Run::measureOwnRows() {
    if (wants("W14", "main queue")) measureMainQueue();
    measureFetchesDuringSave(FetchedEntity::Author, "W15", "fetches during a save, slower by");
    measureFetchesDuringSave(FetchedEntity::Book, "W15b", "the same of the saved entity");
    if (wants("W16", "batched fetch")) measureBatchedFetch();
    if (wants("W19", "another process's save")) measureOthersSaves();
    if (wants("W19b", "wake-ups of an idle second")) measureIdleSecond();
    measureUnsavedGrowth(options_.folder, wanted_, add_);
    measureWholeTables(options_.folder, options_.isScaled, wanted_, addCosts_);
    measureLookups(options_.folder, options_.isScaled, wanted_, addCosts_);
}

bool Run::wants(std::string const& id, std::string const& what) const {
    return options_.only.empty() ? report_.wants("store", id + " " + what)
                                 : std::ranges::find(options_.only, id) != options_.only.end();
}

Session Run::makeSession(std::size_t books, Session::Contenders const& contenders) const {
    static int sessions = 0; // no two share their files
    auto const folder = std::filesystem::path(options_.folder) / fmt::format("{}-{}", books, ++sessions);
    std::filesystem::create_directories(folder);
    return {books, options_.synchronous, folder, contenders};
}

void Run::measure(RowPlan const& plan) {
    if (options_.synchronous == Synchronous::Normal && !plan.writes()) return;
    measure(plan, session_, plan.what, options_.runs ? options_.runs : plan.runs);
}

void Run::measure(RowPlan const& plan, Session& session, std::string const& what, int runs) {
    auto const figures = session.measure(plan, runs);
    auto const& [ours, best] = std::pair(figures[0], figures[1]);
    if (!ours) return; // not yet an operation of ours
    if (best && &session == &session_) ratios_[plan.id] = ours->value / best->value;
    Row row{.group = "store",
            .row = fmt::format("{} {}", plan.id, what),
            .unit = plan.unit,
            .ours = ours->value,
            .peer = contenderKinds[1].name,
            .theirs = best ? best->value : 0,
            .target = best ? plan.target : 0,
            .stretch = best ? plan.stretch : 0,
            .bound = plan.bound};
    for (auto const& figure : std::span(figures).subspan(firstPeer))
        row.others.push_back(figure ? std::optional(figure->value) : std::nullopt);
    if (ours->wall > 0) addWall(row, ours->wall, best ? best->wall : 0);
    report_.add(std::move(row));
}

/// Rows whose cost could be another with few or very many books.
void Run::measureSizes() {
    std::vector<std::size_t> sizes{10'000};
    if (options_.isScaled) sizes.push_back(1'000'000);
    for (auto const size : sizes) {
        std::optional<Session> session;
        for (auto const* id : {"W3b", "W3c", "W12"}) {
            auto const& plan = rowPlan(id);
            auto const what = fmt::format("{}, {}", plan.what, size == 10'000 ? "10,000" : "1,000,000");
            if ((size == 10'000 && plan.id != std::string_view("W12")) || !wants(id, what)) continue;
            if (options_.synchronous == Synchronous::Normal && !plan.writes()) continue;
            if (!session) session.emplace(makeSession(size, contenders_));
            measure(plan, *session, what, 3);
        }
    }
}

/// Into the last columns.
void Run::addWall(Row& row, double ours, double theirs) {
    row.others.resize(columns().size() - 3);
    row.others.push_back(ours);
    if (theirs > 0) row.others.insert(row.others.end(), {theirs, ours / theirs});
}

void Run::addCosts(CostRow const& described, MedianCosts const& costs) {
    Row row{.group = "store",
            .row = described.row,
            .unit = "ms",
            .ours = costs.ours.processor * 1000,
            .peer = described.peer,
            .theirs = costs.theirs.processor * 1000,
            .target = described.target};
    addWall(row, costs.ours.wall * 1000, costs.theirs.wall * 1000);
    report_.add(std::move(row));
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
    report_.add({.group = "store",
                 .row = "W14 main queue held, 5 saves of 25,000",
                 .unit = "ms",
                 .ours = held,
                 .peer = "rawbest, a save",
                 .theirs = median(3, [&] { return rawSaveOf(library, 25'000, session_.fileFor(Start::Empty, *contenders_[0])); }),
                 .target = 0.03, // 5 ms where such a save takes 160
                 .stretch = 0.012});
}

void Run::measureFetchesDuringSave(FetchedEntity entity, char const* id, char const* what) {
    if (!wants(id, what)) return;
    auto const expected = checksumOf(session_.work().library, session_.work().more);
    std::vector<double> wall;
    auto const slowdown = median(5, [&] {
        auto const reading = slowdownOfFetches(session_.work(), entity, session_.fileFor(Start::Empty, *contenders_[0]));
        Session::check(id, reading.checksum, expected);
        wall.push_back(reading.wall);
        return reading.value;
    });
    Row row{
        .group = "store", .row = fmt::format("{} {}", id, what), .unit = "x", .ours = slowdown, .target = 1.15, .stretch = 1.05};
    std::ranges::sort(wall);
    addWall(row, wall[wall.size() / 2], 0);
    report_.add(std::move(row));
}

void Run::measureBatchedFetch() {
    Session::Contenders ours;
    ours.push_back(makeOurs());
    auto session = makeSession(1'000'000, ours);
    auto const reading = measureInChild(ChildTask::BatchedFetch, *ours[0], session.fileFor(Start::Filled, *ours[0]));
    Session::check("W16", reading.checksum, sumOfTitles(session.work().library));
    addOwn("W16 1,000,000 in batches of 100, memory", "MiB", reading.value, 64);
}

void Run::measureOthersSaves() {
    auto const reading = delayOfOthersSaves(*contenders_[0], session_.fileFor(Start::Copied, *contenders_[0]));
    Row row{.group = "store", .row = "W19 another process's save is shown", .unit = "ms", .ours = reading.value, .target = 100};
    addWall(row, reading.wall, 0);
    report_.add(std::move(row));
}

void Run::measureIdleSecond() {
    auto const reading = wakeUpsOfAnIdleSecond(session_.fileFor(Start::Copied, *contenders_[0]));
    report_.add({.group = "store", .row = "W19b wake-ups of an idle second", .unit = "", .ours = reading.value, .target = 0.5});
}

/// How much the ratio to rawbest grows from the smallest library to the largest.
void Run::measureGrowth() {
    std::vector<RowPlan const*> plans;
    for (auto const* id : {"W1", "W3", "W4", "W5"})
        if (wants(fmt::format("{}-growth", id), "growth")) plans.push_back(&rowPlan(id));
    if (plans.empty()) return;

    Session::Contenders both;
    both.push_back(makeOurs());
    both.push_back(makeRawBest());
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
            ratios[plan].push_back(figures[0]->value / figures[1]->value);
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
