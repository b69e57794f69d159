#pragma once
// Rows that only ours can run.
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "benchmarks/store/Contender.h"
#include "benchmarks/support/Report.h"

namespace Tessarin::benchmarks {

/// W14: a worker saves 25,000 books five times while the main thread serves its queue: the longest time, in ms, that one turn
/// of the main queue took. FULL. The checksum is of `library`, whose books these are.
Reading longestMainQueueHold(Library const& library, std::string const& file);
/// What W14 stands beside: ms that SQLite by hand takes to insert the library's last `count` books behind the others. FULL.
double rawSaveOf(Library const& library, std::size_t count, std::string const& file);

enum class FetchedEntity { Author, Book };

/// W15: by how much a worker's look-ups cost more beside a save of the library's books than beside a thread that only keeps a
/// core busy: in the time of their own thread, and in that which passed. FULL. On the main thread. What is looked up was saved
/// before: authors, of whom the save has none, or the books in `more`, whose table the save fills.
Reading slowdownOfFetches(Workload const& work, FetchedEntity entity, std::string const& file);

/// W16: MiB that a fetch of all books in batches of 100 adds to the resident memory, at most, while each title is read. In a
/// process of its own. The checksum is `sumOfTitles`.
Reading memoryOfBatchedFetch(std::string const& file);
std::uint64_t sumOfTitles(Library const& library);

/// W19: ms from the moment at which another process begins to save a book until an observer of that book in this one has its value.
/// FULL. The median of 50 saves in `value`, the longest in `wall`.
Reading delayOfOthersSaves(Contender& ours, std::string const& file);
/// What that process does.
Reading saveForOthers(std::string const& file);
/// W19b: how often threads of a process wake up within a second while it follows a file that nobody changes.
Reading wakeUpsOfAnIdleSecond(std::string const& file);

// Several rows each, as far as they are wanted.
using Wants = FunctionRef<bool(std::string const& id, std::string const& what)>;
/// A figure that is a ratio already.
using AddRatio = FunctionRef<void(std::string const& row, double figure, double target)>;
/// Both sides' costs, of which the ratio of processor times is what the target bounds.
struct CostRow {
    std::string row;
    char const* peer;
    double target;
};
using AddCosts = FunctionRef<void(CostRow const& row, MedianCosts const& costs)>;

/// U1 …: the seconds of n against those of 4 n, and of a context with something unsaved against those of one without. On the
/// main thread.
void measureUnsavedGrowth(std::string const& folder, Wants wants, AddRatio add);

/// M1 …: what is asked on the main thread while something large is imported, beside raw SQLite. On the main thread.
void measureMainThread(std::string const& folder, Synchronous synchronous, Wants wants, AddRatio add);

/// G1 …: what is done to all records of a table, beside SQLite on the same file or beside the other way.
void measureWholeTables(std::string const& folder, bool isScaled, Wants wants, AddCosts add);

/// F1 …: looking for one record among those that a context holds.
void measureLookups(std::string const& folder, bool isScaled, Wants wants, AddCosts add);

} // namespace Tessarin::benchmarks
