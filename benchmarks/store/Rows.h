#pragma once
#include "benchmarks/store/Contender.h"
#include "benchmarks/support/Report.h"
#include <span>

namespace Tessarin::benchmarks {

/// The file that a row starts from: none, one that already holds the library, or a copy of that, to be changed.
enum class Start { Empty, Filled, Copied };

/// A row in which all contenders do the same work.
struct RowPlan {
    char const* id;
    char const* what;
    char const* unit;
    double target; // ours / rawbest, or with `bound` Ours what ours is below
    double stretch; // the same, where more is thought possible; else 0
    int runs;
    Start start;
    std::optional<Reading> (*measure)(Contender&, Workload const&, std::string const& file);
    std::uint64_t (*expected)(Workload const&) = nullptr; // the checksum; null where agreement is all that can be asked
    Bound bound = Bound::Ratio;

    bool writes() const { return start != Start::Filled; }
};

std::span<RowPlan const> rowPlans();
/// One of them, which is there.
RowPlan const& rowPlan(std::string_view id);

} // namespace Tessarin::benchmarks
