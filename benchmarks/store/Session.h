#pragma once
#include "benchmarks/store/Rows.h"
#include <map>

namespace Tessarin::benchmarks {

/// The contenders' medians in their order; nothing for one that has no such operation.
struct Figure {
    double value; // what a row is judged by, in its unit
    double wall; // ms; 0: none
};
using Figures = std::vector<std::optional<Figure>>;

/// One size of library, and the files that hold it. Checks every checksum.
class Session {
public:
    /// Null ones are left out.
    using Contenders = std::vector<std::unique_ptr<Contender>>;

    /// `folder` exists and is for this session alone.
    Session(std::size_t books, Synchronous synchronous, std::string folder, Contenders const& contenders);

    Workload const& work() const { return work_; }
    /// The contenders' runs take turns, so that all of them meet the same machine.
    Figures measure(RowPlan const& plan, int runs);
    /// The file that a run of `start` works on, on the disk as far as it exists already.
    std::string fileFor(Start start, Contender& contender);

    /// Notes a failure of the whole run when the two differ.
    static void check(std::string_view row, std::uint64_t checksum, std::uint64_t expected);
    static bool hasFailed() { return hasFailed_; }

private:
    std::string freshFile() const;
    std::string filledFile(Contender& contender);
    std::string copiedFile(Contender& contender);

    Workload work_;
    std::string folder_;
    Contenders const& contenders_;
    std::map<Contender*, std::string> filled_;
    static inline bool hasFailed_ = false;
};

} // namespace Tessarin::benchmarks
