#pragma once
// The writing rows in SQL, one text for every contender that speaks it.
#include "benchmarks/store/Contender.h"
#include "benchmarks/store/Timing.h"

#include <span>
#include <unordered_map>

namespace Tessarin::benchmarks::sql {

/// Each relationship is indexed in both directions. The indexes exist before the rows, as in any application whose store lives
/// longer than its first import.
inline constexpr char const* tables[] = {
    "CREATE TABLE Author (id INTEGER PRIMARY KEY, name TEXT, birth REAL, rating REAL)",
    "CREATE TABLE Tag (id INTEGER PRIMARY KEY, name TEXT)",
    ("CREATE TABLE Book (id INTEGER PRIMARY KEY, code TEXT, title TEXT, year INTEGER, price REAL, inPrint INTEGER, "
     "author INTEGER)"),
    "CREATE TABLE Book_tags (owner INTEGER NOT NULL, member INTEGER NOT NULL, PRIMARY KEY (owner, member)) WITHOUT ROWID",
};
inline constexpr char const* indexes[] = {
    "CREATE INDEX Author_name ON Author (name)",
    "CREATE INDEX Book_code ON Book (code)",
    "CREATE INDEX Book_author ON Book (author)",
    "CREATE INDEX Book_tags_member ON Book_tags (member)",
};
inline std::string nameOfIndex(std::string_view statement) {
    constexpr std::string_view before = "CREATE INDEX ";
    return std::string(statement.substr(before.size(), statement.find(" ON ") - before.size()));
}
void makeSchema(auto& database) {
    for (auto const* statement : tables) database.execute(statement);
    for (auto const* statement : indexes) database.execute(statement);
}

/// Writes authors, tags and books; the keys of authors and tags stand in the library's order.
template <class Database> class Inserter {
    using Statement = decltype(std::declval<Database&>().prepare(""));

public:
    explicit Inserter(Database& database)
        : insertAuthor_(database.prepare("INSERT INTO Author (name, birth, rating) VALUES (?, ?, ?)")),
          insertBook_(database.prepare("INSERT INTO Book (code, title, year, price, inPrint, author) VALUES (?, ?, ?, ?, ?, ?)")),
          insertTag_(database.prepare("INSERT INTO Tag (name) VALUES (?)")),
          insertLink_(database.prepare("INSERT INTO Book_tags (owner, member) VALUES (?, ?)")),
          database_(database) {}

    void insertAuthorsAndTags(Library const& library) {
        for (auto const& author : library.authors) {
            insertAuthor_.bind(1, author.name);
            insertAuthor_.bind(2, author.birth);
            insertAuthor_.bind(3, author.rating);
            insertAuthor_.run();
            authors_.push_back(insertAuthor_.lastKey());
        }
        for (auto const& tag : library.tags) {
            insertTag_.bind(1, tag);
            insertTag_.run();
            tags_.push_back(insertTag_.lastKey());
        }
    }
    /// Those that the file has already.
    void findAuthorsAndTags(Library const& library) {
        auto const keys = [&](char const* sql) {
            std::unordered_map<std::string, std::int64_t> byName;
            for (auto record = database_.prepare(sql); record.step();) byName.emplace(record.text(1), record.integer(0));
            return byName;
        };
        auto const authors = keys("SELECT id, name FROM Author"), tags = keys("SELECT id, name FROM Tag");
        for (auto const& author : library.authors) authors_.push_back(authors.at(author.name));
        for (auto const& tag : library.tags) tags_.push_back(tags.at(tag));
    }

    void insertBooks(std::span<Library::Book const> books) {
        for (auto const& book : books) {
            auto const key = insertBook(book);
            for (auto const tag : book.tags) insertLink(key, keyOfTag(tag));
        }
    }

protected:
    std::int64_t insertBook(Library::Book const& book) {
        insertBook_.bind(1, book.code);
        insertBook_.bind(2, book.title);
        insertBook_.bind(3, std::int64_t{book.year});
        insertBook_.bind(4, book.price);
        insertBook_.bind(5, std::int64_t{book.inPrint});
        insertBook_.bind(6, authors_[book.author]);
        insertBook_.run();
        return insertBook_.lastKey();
    }
    void insertLink(std::int64_t owner, std::int64_t member) {
        insertLink_.bind(1, owner);
        insertLink_.bind(2, member);
        insertLink_.run();
    }
    std::int64_t keyOfTag(std::uint32_t tag) const { return tags_[tag]; }

private:
    Statement insertAuthor_, insertBook_, insertTag_, insertLink_;
    std::vector<std::int64_t> authors_, tags_;
    Database& database_;
};

template <class Database> void inTransaction(Database& database, auto const& work) {
    database.execute("BEGIN IMMEDIATE");
    work();
    database.execute("COMMIT");
}

template <class Database> void changeBooks(Database& database) {
    struct Book {
        std::int64_t key;
        double price;
        bool inPrint;
    };
    inTransaction(database, [&] {
        std::vector<Book> found;
        auto books = database.prepare("SELECT id, code, title, year, price, inPrint FROM Book WHERE year < ?");
        books.bind(1, std::int64_t{changedBefore});
        while (books.step()) found.push_back({books.integer(0), books.real(4), books.integer(5) != 0});
        std::string const title = changedTitle;
        auto change = database.prepare("UPDATE Book SET title = ?, price = ?, inPrint = ? WHERE id = ?");
        for (auto const& book : found) {
            change.bind(1, title);
            change.bind(2, changedPrice(book.price));
            change.bind(3, std::int64_t{!book.inPrint});
            change.bind(4, book.key);
            change.run();
        }
    });
}

template <class Database> void deleteBooks(Database& database) {
    inTransaction(database, [&] {
        std::vector<std::int64_t> found;
        auto books = database.prepare("SELECT id FROM Book WHERE year < ?");
        books.bind(1, std::int64_t{changedBefore});
        while (books.step()) found.push_back(books.integer(0));
        auto removeLinks = database.prepare("DELETE FROM Book_tags WHERE owner = ?");
        auto removeBook = database.prepare("DELETE FROM Book WHERE id = ?");
        for (auto const key : found) {
            removeLinks.bind(1, key);
            removeLinks.run();
            removeBook.bind(1, key);
            removeBook.run();
        }
    });
}

template <class Database> void updateInBatch(Database& database) {
    inTransaction(database, [&] {
        auto update = database.prepare("UPDATE Book SET price = ?, inPrint = 0 WHERE year < ?");
        update.bind(1, batchedPrice);
        update.bind(2, std::int64_t{batchedBefore});
        update.run();
    });
}

template <class Database> void deleteInBatch(Database& database) {
    inTransaction(database, [&] {
        for (auto const* sql :
             {"DELETE FROM Book_tags WHERE owner IN (SELECT id FROM Book WHERE year < ?)", "DELETE FROM Book WHERE year < ?"}) {
            auto remove = database.prepare(sql);
            remove.bind(1, std::int64_t{batchedBefore});
            remove.run();
        }
    });
}

} // namespace Tessarin::benchmarks::sql
