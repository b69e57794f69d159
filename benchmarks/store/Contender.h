#pragma once
#include "benchmarks/store/Library.h"
#include <memory>
#include <string>

namespace Tessarin::benchmarks {

/// What one run of a row gave: a figure in the row's unit, and a checksum that every contender must agree on.
struct Reading {
    double value = 0;
    std::uint64_t checksum = 0;
};

/// What all rows start from, made once.
struct Workload {
    Library library;
    std::string json; // of its first `imported` books
    std::size_t imported = 50'000;
    std::string folder; // temporary
};

/// One way of storing the library. Each function is one run of one row on a freshly opened file; opening it is outside the
/// time, and everything from the first statement or object to the end of the commit is inside.
class Contender {
public:
    virtual ~Contender() = default;
    virtual std::string name() const = 0;

    /// W1: the whole library into an empty file, one save. FULL.
    virtual Reading insertAll(Workload const& work, std::string const& file) = 0;
    /// W3: every book, five attributes of each.
    virtual Reading readAll(Workload const& work, std::string const& file) = 0;
    /// W6: every book, its author's name.
    virtual Reading walkToAuthors(Workload const& work, std::string const& file) = 0;
    /// W10: books from JSON text into an empty file, the author found by name or made. FULL.
    virtual Reading importJSON(Workload const& work, std::string const& file) = 0;
    /// W12: MiB that all books add to the resident memory while they are held with five attributes each. In a process
    /// of its own.
    virtual Reading residentBooks(std::string const& file) = 0;
};

std::unique_ptr<Contender> makeRaw();
std::unique_ptr<Contender> makeOurs();

/// W14: a worker saves 25,000 books five times while the main thread serves its queue: the longest time, in ms, that one turn
/// of the main queue took. FULL. The checksum is of `library`, whose books these are.
Reading longestMainQueueHold(Library const& library, std::string const& file);

/// W12 in a new process, which is this program with `--resident CONTENDER FILE`.
Reading residentInChild(Contender& contender, Workload const& work, std::string const& file);
/// What that process does: prints the figure and the checksum.
int measureResident(std::string const& contender, std::string const& file);
/// MiB of this process that are in memory now.
double residentMiB();

} // namespace Tessarin::benchmarks
