#include "benchmarks/support/Report.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fmt/format.h>

namespace Tessarin::benchmarks {
namespace {

bool hasPeer(Row const& row) { return row.theirs > 0; }
bool isRatio(Row const& row) { return hasPeer(row) && row.bound == Bound::Ratio; }
double judged(Row const& row) { return isRatio(row) ? row.ours / row.theirs : row.ours; }

bool reaches(Row const& row, double bound) { return row.better == Better::Smaller ? judged(row) <= bound : judged(row) >= bound; }
bool isMet(Row const& row) { return row.target == 0 || reaches(row, row.target); }
char const* verdict(Row const& row) {
    if (!isMet(row)) return "<-- missed";
    return row.stretch != 0 && reaches(row, row.stretch) ? "stretch" : "";
}

std::string number(double value) { return value >= 100 ? fmt::format("{:.0f}", value) : fmt::format("{:.3g}", value); }

/// How the target reads: "<= 3" against a peer is a ratio ("<= 3x"), else a bound in the row's unit.
std::string targetText(Row const& row) {
    if (row.target == 0) return "";
    return fmt::format("{} {}{}", row.better == Better::Smaller ? "<=" : ">=", number(row.target), isRatio(row) ? "x" : "");
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (char const character : text) {
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return result + '"';
}

std::string json(Row const& row, std::vector<std::string> const& otherColumns) {
    std::string others;
    for (std::size_t at = 0; at < row.others.size(); ++at)
        if (row.others[at])
            others += fmt::format("{}{}:{:.6g}", others.empty() ? "" : ",", quoted(otherColumns[at]), *row.others[at]);
    auto const orNull = [](bool present, double value) { return present ? fmt::format("{:.6g}", value) : std::string{"null"}; };
    return fmt::format(R"({{"group":{},"row":{},"unit":{},"better":"{}","ours":{:.6g},"peer":{},)"
                       R"("theirs":{},"ratio":{},"target":{},"met":{},"stretch":{},"others":{{{}}}}})"
                       "\n",
                       quoted(row.group), quoted(row.row), quoted(row.unit), row.better == Better::Smaller ? "smaller" : "larger",
                       row.ours, quoted(row.peer), orNull(hasPeer(row), row.theirs), orNull(hasPeer(row), row.ours / row.theirs),
                       orNull(row.target != 0, row.target), isMet(row), orNull(row.stretch != 0, row.stretch), others);
}

double processorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double middle(std::vector<double>& values) {
    auto const at = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

} // namespace

Report::Report(int argc, char** argv, std::vector<std::string> otherColumns) : otherColumns_(std::move(otherColumns)) {
    for (int i = 1; i < argc; ++i) {
        if (std::string_view{argv[i]} == "--json" && i + 1 < argc)
            jsonFile_ = argv[++i];
        else
            names_.emplace_back(argv[i]);
    }
    auto head = fmt::format("{:<12} {:<38} {:>17} {:>28} {:>8} {:>9}", "group", "row", "ours", "peer", "ratio", "target");
    for (auto const& column : otherColumns_) head += fmt::format(" {:>9}", column);
    std::fputs((head + "\n").c_str(), stdout);
}

bool Report::wants(std::string_view group, std::string_view row) const {
    auto const name = fmt::format("{}/{}", group, row);
    return names_.empty() || std::ranges::any_of(names_, [&](auto const& part) { return name.find(part) != std::string::npos; });
}

std::string Report::line(Row const& row) const {
    auto const peer = hasPeer(row) ? fmt::format("{} {}", row.peer, number(row.theirs)) : std::string{};
    auto const ratio = hasPeer(row) ? fmt::format("{:.2f}x", row.ours / row.theirs) : std::string{};
    auto text = fmt::format("{:<12} {:<38} {:>9} {:<7} {:>28} {:>8} {:>9}", row.group, row.row, number(row.ours), row.unit, peer,
                            ratio, targetText(row));
    for (std::size_t at = 0; at < otherColumns_.size(); ++at)
        text += fmt::format(" {:>9}", at < row.others.size() && row.others[at] ? number(*row.others[at]) : "-");
    return fmt::format("{}  {}\n", text, verdict(row));
}

void Report::add(Row row) {
    std::fputs(line(row).c_str(), stdout);
    std::fflush(stdout);
    rows_.push_back(std::move(row));
}

int Report::finish() const {
    auto const judgedRows = std::ranges::count_if(rows_, [](auto const& row) { return row.target != 0; });
    auto const missed = std::ranges::count_if(rows_, [](auto const& row) { return !isMet(row); });
    std::fputs(fmt::format("{} rows, {} with a target, {} missed\n", rows_.size(), judgedRows, missed).c_str(), stdout);
    if (jsonFile_.empty()) return 0;

    auto* const file = std::fopen(jsonFile_.c_str(), "a");
    if (!file) {
        std::perror(jsonFile_.c_str());
        return 1;
    }
    bool written = true;
    for (auto const& row : rows_) written = std::fputs(json(row, otherColumns_).c_str(), file) >= 0 && written;
    return std::fclose(file) == 0 && written ? 0 : 1;
}

Medians medians(int runs, FunctionRef<double()> ours, FunctionRef<double()> theirs) {
    std::vector<double> first;
    std::vector<double> second;
    for (int run = 0; run < runs; ++run) {
        first.push_back(ours());
        second.push_back(theirs());
    }
    return {middle(first), middle(second)};
}

double median(int runs, FunctionRef<double()> measure) {
    std::vector<double> values;
    for (int run = 0; run < runs; ++run) values.push_back(measure());
    return middle(values);
}

double secondsOf(FunctionRef<void()> work) {
    auto const start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Cost costOf(FunctionRef<void()> work) {
    auto const before = processorSeconds();
    auto const wall = secondsOf(work);
    return {wall, processorSeconds() - before};
}

MedianCosts medianCosts(int runs, FunctionRef<Cost()> ours, FunctionRef<Cost()> theirs) {
    struct Values {
        std::vector<double> wall, processor;
        void add(Cost const& cost) {
            wall.push_back(cost.wall);
            processor.push_back(cost.processor);
        }
        Cost middles() { return {middle(wall), middle(processor)}; }
    };
    Values first, second;
    for (int run = 0; run < runs; ++run) {
        first.add(ours());
        second.add(theirs());
    }
    return {first.middles(), second.middles()};
}

} // namespace Tessarin::benchmarks
