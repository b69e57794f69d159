#pragma once
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin::benchmarks {

enum class Better { Smaller, Larger };
/// What a target bounds beside a peer: ours / theirs, or ours itself all the same.
enum class Bound { Ratio, Ours };

/// One measurement. With a peer, `target` bounds ours / theirs; without one (`theirs` zero) it bounds `ours` itself, in
/// `unit`. A target of zero means that the row is only for reading.
struct Row {
    std::string group;
    std::string row;
    std::string unit;
    double ours = 0;
    std::string peer = {};
    double theirs = 0;
    double target = 0;
    Better better = Better::Smaller;
    double stretch = 0; // a target that is thought hard to reach; zero: none
    Bound bound = Bound::Ratio;
    std::vector<std::optional<double>> others = {}; // of the report's other columns, in their order, to be read only
};

/// Collects rows, prints them as a table in which missed ones are marked, and writes one JSON object a line on request.
///
///     Report report(argc, argv);                      // bench_x [--json FILE] [part of a group's or row's name]...
///     if (report.wants("sync", "uncontended")) report.add({.group = "sync", .row = "uncontended", .unit = "ns", .ours = 7});
///     return report.finish();
class Report {
public:
    /// Each of `otherColumns` (other peers, the same in another measure) gets a column after the target.
    Report(int argc, char** argv, std::vector<std::string> otherColumns = {});

    /// Whether a row is to be measured: true without names on the command line, else when "group/row" contains one of them.
    bool wants(std::string_view group, std::string_view row) const;
    /// Prints and keeps the row.
    void add(Row row);
    /// Appends to the file, so that several benchmarks share one, and prints the last line. Gives the exit status: 0, also
    /// when targets were missed, 1 when the file failed.
    int finish() const;

private:
    std::string line(Row const& row) const;

    std::vector<std::string> otherColumns_;
    std::vector<std::string> names_;
    std::string jsonFile_;
    std::vector<Row> rows_;
};

struct Medians {
    double ours;
    double theirs;
};
/// Measures both `runs` times, taking turns so that both meet the same machine, and gives the two medians.
Medians medians(int runs, FunctionRef<double()> ours, FunctionRef<double()> theirs);
double median(int runs, FunctionRef<double()> measure);

/// Seconds that `work` took.
double secondsOf(FunctionRef<void()> work);

/// The same, and the seconds that all threads of this process kept a processor busy meanwhile.
struct Cost {
    double wall = 0;
    double processor = 0;
};
Cost costOf(FunctionRef<void()> work);
/// As `medians` does, of both measures.
struct MedianCosts {
    Cost ours;
    Cost theirs;
};
MedianCosts medianCosts(int runs, FunctionRef<Cost()> ours, FunctionRef<Cost()> theirs);

} // namespace Tessarin::benchmarks
