#pragma once
// SQLite by hand, with every trick that ours uses, and those that its rows allow: what is left to gain on the same file.
//
// All rows: statements are kept, BEGIN and COMMIT among them; only the columns that are asked for are selected; the page cache,
// the checks of pages and what becomes of deleted content are as ours has them (Tessarin/platform/sqlite/Connection.cpp).
//
//     W1, W10      the tables are empty: indexes are dropped first, and made once behind the rows
//     W1, W2, W13  links go into their table behind the books, sorted
//     W3, W3b, W3c one statement, no key
//     W4, W5, W9   one read transaction around all
//     W6           authors are read once, into a list by key, and the books from the index by author, which has all that is asked
//                  for; the JOIN, which makes SQLite look up each author, takes longer
//     W7           by key, only what changed
//     W8           ranges of neighbours instead of keys
//     W10          authors are kept in a map by name
//     W11          only what reading needs is set on the connection; one JOIN
//     W12          as raw: the smallest of what is usual, a struct with two strings a book
#include "benchmarks/store/RawDatabase.h"
#include "benchmarks/store/SQLContender.h"

namespace Tessarin::benchmarks {

class BestDatabase : public RawDatabase {
public:
    BestDatabase(std::string const& file, Synchronous synchronous) : RawDatabase(file, synchronous) { setAsOurs(); }
    struct JustToRead {};
    BestDatabase(std::string const& file, JustToRead) : RawDatabase(file) { execute("PRAGMA cache_size = -8192"); }

    void begin() { begin_.run(); }
    void commit() { commit_.run(); }

private:
    void setAsOurs() { execute("PRAGMA cell_size_check = ON; PRAGMA mmap_size = 0; PRAGMA secure_delete = OFF"); }

    RawStatement begin_ = prepare("BEGIN IMMEDIATE"), commit_ = prepare("COMMIT");
};

/// From its making to its end.
class ReadTransaction {
public:
    explicit ReadTransaction(BestDatabase& database) : database_(database) { database_.execute("BEGIN"); }
    ~ReadTransaction() { database_.commit(); }
    ReadTransaction(ReadTransaction const&) = delete;

private:
    BestDatabase& database_;
};

/// The reading rows. Those that are not here are as raw's.
class BestReader : public sql::Reader<BestDatabase> {
public:
    explicit BestReader(BestDatabase& database) : Reader(database), database_(database) {}

    Reading readAll(Contender::Pass timed, std::string const& changed);
    Reading findByCode(Library const& library);
    Reading findAndSort();
    Reading walkToAuthors();
    Reading countBooks();

private:
    BestDatabase& database_;
};

/// The writing rows. The caller is in a transaction.
class BestInserter : public sql::Inserter<BestDatabase> {
public:
    using Inserter::Inserter;
    /// The links behind all books, in the order of their table.
    void insertBooks(std::span<Library::Book const> books);

private:
    struct Link {
        std::int64_t owner, member;
    };
    std::vector<Link> links_;
};

} // namespace Tessarin::benchmarks
