#pragma once
#include "benchmarks/store/Library.h"
#include <memory>
#include <optional>
#include <string>

namespace Tessarin::benchmarks {

/// What one run of a row gave: a figure in the row's unit, and a checksum that every contender must agree on. A time is that of
/// the processor, of all threads together, since a sync of the disk or a second core would hide work; the time that passed
/// stands beside it.
struct Reading {
    double value = 0;
    std::uint64_t checksum = 0;
    double wall = 0; // ms; 0 where the figure is no time
};

enum class Synchronous { Normal, Full };

/// What all rows start from, made once.
struct Workload {
    explicit Workload(std::size_t books, Synchronous synchronous = Synchronous::Full);

    Library library; // what a filled file holds
    std::vector<Library::Book> more; // 10,000 books to come
    std::string json; // of the library's first `imported` books
    std::size_t imported;
    Synchronous synchronous; // of the rows that write
};

/// Every book of these years is what the rows that change or delete work on: 10,000 of 100,000, and 11,000.
inline constexpr int changedBefore = 1934, batchedBefore = 1935;
/// What W7 makes of a book.
inline constexpr char const* changedTitle = "Collected edition, revised";
inline double changedPrice(double price) { return price + 1; }
/// What W7b makes of all books.
inline constexpr double batchedPrice = 1.5;

/// How often the rows that give the mean of several runs repeat their work.
inline constexpr int repeats = 20;

/// One way of storing the library. Each function is one run of one row on a freshly opened file; opening it is outside the
/// time, and everything from the first statement or object to the end of the commit is inside. Times are in ms. What writes is
/// as durable as the workload says, what only reads is NORMAL.
class Contender {
public:
    explicit Contender(char const* name) : name_(name) {}
    virtual ~Contender() = default;
    std::string const& name() const { return name_; }

    /// W1: the whole library into an empty file, one save.
    virtual Reading insertAll(Workload const& work, std::string const& file) = 0;
    /// W2, W13: the first `count` of `more` into a filled file, a save after each `share` of them.
    virtual Reading insertMore(Workload const& work, std::string const& file, std::size_t count, std::size_t share) = 0;
    /// W3: every book, five attributes of each. W3b: the time of the second reading of the same session; W3c: of one with a save
    /// of one book's price in between.
    enum class Pass { First, Second, AfterSave };
    virtual Reading readAll(Workload const& work, std::string const& file, Pass timed) = 0;
    /// W4: 10,000 look-ups by code, two attributes of each.
    virtual Reading findByCode(Workload const& work, std::string const& file) = 0;
    /// W5: price > 50 and title contains "foo", latest year first, then by code, the first 100; mean.
    virtual Reading findAndSort(Workload const& work, std::string const& file) = 0;
    /// W6: every book, its author's name.
    virtual Reading walkToAuthors(Workload const& work, std::string const& file) = 0;
    /// W7: the books before `changedBefore` are read, and each gets a title, a price and a new inPrint.
    virtual Reading changeBooks(Workload const& work, std::string const& file) = 0;
    /// W8: the books before `changedBefore` are read, and each is deleted with its links.
    virtual Reading deleteBooks(Workload const& work, std::string const& file) = 0;
    /// W9: how many books there are, and how many with price > 50; mean.
    virtual Reading countBooks(Workload const& work, std::string const& file) = 0;
    /// W10: books from JSON text into an empty file, the author found by name or made.
    virtual Reading importJSON(Workload const& work, std::string const& file) = 0;
    /// W11: opening the file, a look-up by code, the author's name. In a process of its own.
    virtual Reading openAndFind(std::string const& code, std::string const& file) = 0;
    /// W12: bytes that each book adds to the resident memory while all are held with five attributes each. In a process of
    /// its own.
    virtual Reading residentBooks(std::string const& file) = 0;

    // One statement for many records; nothing for a contender that has no such operation.
    /// W7b: the books before `batchedBefore` get `batchedPrice` and are not in print.
    virtual std::optional<Reading> updateInBatch(Workload const&, std::string const&) { return {}; }
    /// W8b: the books before `batchedBefore` are deleted with their links.
    virtual std::optional<Reading> deleteInBatch(Workload const&, std::string const&) { return {}; }

    // W1 and W13 with a row for each transaction in a history; nothing for a contender that keeps none.
    virtual std::optional<Reading> insertAllKept(Workload const&, std::string const&) { return {}; }
    virtual std::optional<Reading> insertMoreKept(Workload const&, std::string const&, std::size_t, std::size_t) { return {}; }

private:
    std::string const name_;
};

std::unique_ptr<Contender> makeOurs();
std::unique_ptr<Contender> makeRawBest();
std::unique_ptr<Contender> makeRaw();
// Peers, null where they are not installed.
std::unique_ptr<Contender> makeSQLiteCpp();
std::unique_ptr<Contender> makeQtSQL();

/// Ours, what it is measured against, and the peers after them.
inline constexpr struct {
    char const* name;
    std::unique_ptr<Contender> (*make)();
} contenderKinds[] = {
    {"ours", makeOurs}, {"rawbest", makeRawBest}, {"raw", makeRaw}, {"SQLiteCpp", makeSQLiteCpp}, {"Qt SQL", makeQtSQL}};
inline constexpr std::size_t firstPeer = 2;

} // namespace Tessarin::benchmarks
