#pragma once
// Rows that only ours can run.
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "benchmarks/store/Contender.h"

namespace Tessarin::benchmarks {

/// W14: a worker saves 25,000 books five times while the main thread serves its queue: the longest time, in ms, that one turn
/// of the main queue took. FULL. The checksum is of `library`, whose books these are.
Reading longestMainQueueHold(Library const& library, std::string const& file);

enum class FetchedEntity { Author, Book };

/// W15: by how much a worker's look-ups are slower beside a save of the library's books than beside a thread that only keeps a
/// core busy. FULL. On the main thread. What is looked up was saved before: authors, of whom the save has none, or the books in
/// `more`, whose table the save fills.
Reading slowdownOfFetches(Workload const& work, FetchedEntity entity, std::string const& file);

/// W16: MiB that a fetch of all books in batches of 100 adds to the resident memory, at most, while each title is read. In a
/// process of its own. The checksum is `sumOfTitles`.
Reading memoryOfBatchedFetch(std::string const& file);
std::uint64_t sumOfTitles(Library const& library);

/// U1 …: the seconds of n against those of 4 n, and of a context with something unsaved against those of one without. On the
/// main thread.
void measureUnsavedGrowth(std::string const& folder, FunctionRef<bool(std::string const& id, std::string const& what)> wants,
                          FunctionRef<void(std::string const& row, double figure, double target)> add);

/// M1 …: what is asked on the main thread while something large is imported, beside raw SQLite. On the main thread.
void measureMainThread(std::string const& folder, Synchronous synchronous,
                       FunctionRef<bool(std::string const& id, std::string const& what)> wants,
                       FunctionRef<void(std::string const& row, double figure, double target)> add);

/// G1 …: what is done to all records of a table, beside SQLite on the same file or beside the other way.
void measureWholeTables(std::string const& folder, FunctionRef<bool(std::string const& id, std::string const& what)> wants,
                        FunctionRef<void(std::string const& row, double figure, double target)> add);

} // namespace Tessarin::benchmarks
