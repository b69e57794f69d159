#pragma once
#include "benchmarks/store/OurRows.h"
#include "benchmarks/store/Session.h"
#include "benchmarks/support/Report.h"
#include <functional>
#include <map>

namespace Tessarin::benchmarks {

struct RunOptions {
    std::vector<std::string> only; // identifiers of rows; empty: what the report wants
    bool isScaled = false; // also 1,000,000 books, which takes minutes
    bool isOursAlone = false; // for a profiler
    int runs = 0; // of each row; 0: as many as it needs
    Synchronous synchronous = Synchronous::Full; // Normal: only the rows that write
    std::string folder; // exists
};

/// All rows, in order, into a report.
class Run {
public:
    /// What stands beside the figures that rows are judged by: the peers', and those of wall time.
    static std::vector<std::string> columns();

    Run(RunOptions const& options, Session::Contenders const& contenders, Report& report);
    void measureAll();

private:
    bool wants(std::string const& id, std::string const& what) const;
    Session makeSession(std::size_t books, Session::Contenders const& contenders) const;
    void measure(RowPlan const& plan);
    void measure(RowPlan const& plan, Session& session, std::string const& what, int runs);
    void measureSizes();
    static void addWall(Row& row, double ours, double theirs);
    void addCosts(CostRow const& row, MedianCosts const& costs);
    void measureOwnRows();
    void measureGrowth();

    // Rows of ours alone.
    void addOwn(std::string const& row, char const* unit, double figure, double target, double stretch = 0);
    void measureMainQueue();
    void measureFetchesDuringSave(FetchedEntity entity, char const* id, char const* what);
    void measureBatchedFetch();
    void measureOthersSaves();
    void measureIdleSecond();

    RunOptions const& options_;
    Session::Contenders const& contenders_;
    Report& report_;
    Session session_;
    std::function<bool(std::string const&, std::string const&)> const wanted_ = [this](auto const& id, auto const& what) {
        return wants(id, what);
    };
    std::function<void(std::string const&, double, double)> const add_ = [this](auto const& row, double figure, double target) {
        addOwn(row, "x", figure, target);
    };
    std::function<void(CostRow const&, MedianCosts const&)> const addCosts_ = [this](auto const& row, auto const& costs) {
        addCosts(row, costs);
    };
    std::map<std::string, double> ratios_; // ours / rawbest of the rows measured so far, by identifier
};

} // namespace Tessarin::benchmarks
