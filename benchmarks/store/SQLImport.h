#pragma once
// W10 in SQL: what the object store's import does, written by hand.
#include <chrono>
#include <optional>
#include <simdjson.h>
#include <string>
#include <string_view>

namespace Tessarin::benchmarks::sql {

/// Days since 2001 of "1950-03-01T…", as seconds; the generator writes whole days in UTC only.
inline double secondsOfDay(std::string_view text) {
    auto const digits = [&](std::size_t at, std::size_t count) {
        int number = 0;
        for (char const digit : text.substr(at, count)) number = number * 10 + (digit - '0');
        return number;
    };
    using namespace std::chrono;
    auto const day = sys_days{year{digits(0, 4)} / month(static_cast<unsigned>(digits(5, 2))) / digits(8, 2)};
    return static_cast<double>((day - sys_days{year{2001} / 1 / 1}).count()) * 86400;
}

template <class Database> class Importer {
    using Statement = decltype(std::declval<Database&>().prepare(""));

public:
    explicit Importer(Database& database)
        : findAuthor_(database.prepare("SELECT id FROM Author WHERE name = ?")),
          insertAuthor_(database.prepare("INSERT INTO Author (name, birth, rating) VALUES (?, ?, ?)")),
          insertBook_(
              database.prepare("INSERT INTO Book (code, title, year, price, inPrint, author) VALUES (?, ?, ?, ?, ?, ?)")) {}

    void import(std::string const& json) {
        simdjson::ondemand::parser parser;
        auto document = parser.iterate(json.data(), json.size(), json.capacity());
        for (simdjson::ondemand::object book : document) { // its keys in the order in which they are asked for
            insertBook_.bind(1, std::string_view{book["code"]});
            insertBook_.bind(2, std::string_view{book["title"]});
            insertBook_.bind(3, std::int64_t{book["year"]});
            insertBook_.bind(4, double{book["price"]});
            insertBook_.bind(5, std::int64_t{bool{book["inPrint"]}});
            insertBook_.bind(6, authorKey(book["author"]));
            insertBook_.run();
        }
    }

    virtual ~Importer() = default;

protected:
    virtual std::optional<std::int64_t> findAuthor(std::string_view name) {
        findAuthor_.bind(1, name);
        std::optional<std::int64_t> known;
        if (findAuthor_.step()) known = findAuthor_.integer(0);
        findAuthor_.reset();
        return known;
    }
    virtual void noteAuthor(std::string_view, std::int64_t) {} // one that was just inserted

private:
    std::int64_t authorKey(simdjson::ondemand::object author) {
        std::string_view const name = author["name"];
        if (auto const known = findAuthor(name)) return *known;
        insertAuthor_.bind(1, name);
        insertAuthor_.bind(2, secondsOfDay(author["birth"]));
        insertAuthor_.bind(3, double{author["rating"]});
        insertAuthor_.run();
        auto const key = insertAuthor_.lastKey();
        noteAuthor(name, key);
        return key;
    }

    Statement findAuthor_, insertAuthor_, insertBook_;
};

} // namespace Tessarin::benchmarks::sql
