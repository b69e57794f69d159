// The hand-written side: one connection, prepared statements, one transaction.
#include "benchmarks/store/Contender.h"
#include "benchmarks/store/RawDatabase.h"
#include "benchmarks/support/Report.h"

#include <chrono>
#include <optional>
#include <simdjson.h>
#include <vector>

namespace Tessarin::benchmarks {
namespace {

using Synchronous = RawDatabase::Synchronous;

constexpr auto insertAuthorSQL = "INSERT INTO Author (name, birth, rating) VALUES (?, ?, ?)";
constexpr auto insertBookSQL = "INSERT INTO Book (code, title, year, price, inPrint, author) VALUES (?, ?, ?, ?, ?, ?)";

void insertLibrary(RawDatabase& database, Library const& library) {
    database.execute("BEGIN IMMEDIATE");
    auto insertAuthor = database.prepare(insertAuthorSQL);
    std::vector<std::int64_t> authors, tags;
    for (auto const& author : library.authors) {
        insertAuthor.bind(1, author.name);
        insertAuthor.bind(2, author.birth);
        insertAuthor.bind(3, author.rating);
        insertAuthor.run();
        authors.push_back(database.lastKey());
    }
    auto insertTag = database.prepare("INSERT INTO Tag (name) VALUES (?)");
    for (auto const& tag : library.tags) {
        insertTag.bind(1, tag);
        insertTag.run();
        tags.push_back(database.lastKey());
    }
    auto insertBook = database.prepare(insertBookSQL);
    auto insertLink = database.prepare("INSERT INTO Book_tags (owner, member) VALUES (?, ?)");
    for (auto const& book : library.books) {
        insertBook.bind(1, book.code);
        insertBook.bind(2, book.title);
        insertBook.bind(3, std::int64_t{book.year});
        insertBook.bind(4, book.price);
        insertBook.bind(5, std::int64_t{book.inPrint});
        insertBook.bind(6, authors[book.author]);
        insertBook.run();
        insertLink.bind(1, database.lastKey());
        for (auto const tag : book.tags) {
            insertLink.bind(2, tags[tag]);
            insertLink.run();
        }
    }
    database.execute("COMMIT");
}

/// Days since 2001 of "1950-03-01T…", as seconds; the generator writes whole days in UTC only.
double secondsOfDay(std::string_view text) {
    auto const digits = [&](std::size_t at, std::size_t count) {
        int number = 0;
        for (char const digit : text.substr(at, count)) number = number * 10 + (digit - '0');
        return number;
    };
    using namespace std::chrono;
    auto const day = sys_days{year{digits(0, 4)} / month(static_cast<unsigned>(digits(5, 2))) / digits(8, 2)};
    return static_cast<double>((day - sys_days{year{2001} / 1 / 1}).count()) * 86400;
}

class Importer {
public:
    explicit Importer(RawDatabase& database)
        : database_(database),
          findAuthor_(database.prepare("SELECT id FROM Author WHERE name = ?")),
          insertAuthor_(database.prepare(insertAuthorSQL)),
          insertBook_(database.prepare(insertBookSQL)) {}

    void import(std::string const& json) {
        simdjson::ondemand::parser parser;
        auto document = parser.iterate(json.data(), json.size(), json.capacity());
        database_.execute("BEGIN IMMEDIATE");
        for (simdjson::ondemand::object book : document) { // its keys in the order in which they are asked for
            insertBook_.bind(1, std::string_view{book["code"]});
            insertBook_.bind(2, std::string_view{book["title"]});
            insertBook_.bind(3, std::int64_t{book["year"]});
            insertBook_.bind(4, double{book["price"]});
            insertBook_.bind(5, std::int64_t{bool{book["inPrint"]}});
            insertBook_.bind(6, authorKey(book["author"]));
            insertBook_.run();
        }
        database_.execute("COMMIT");
    }

private:
    std::int64_t authorKey(simdjson::ondemand::object author) {
        std::string_view const name = author["name"];
        findAuthor_.bind(1, name);
        std::optional<std::int64_t> known;
        if (findAuthor_.step()) known = findAuthor_.integer(0);
        findAuthor_.reset();
        if (known) return *known;
        insertAuthor_.bind(1, name);
        insertAuthor_.bind(2, secondsOfDay(author["birth"]));
        insertAuthor_.bind(3, double{author["rating"]});
        insertAuthor_.run();
        return database_.lastKey();
    }

    RawDatabase& database_;
    RawStatement findAuthor_, insertAuthor_, insertBook_;
};

class Raw : public Contender {
public:
    std::string name() const override { return "raw SQLite"; }

    Reading insertAll(Workload const& work, std::string const& file) override {
        auto database = RawDatabase::create(file, Synchronous::Full);
        auto const seconds = secondsOf([&] { insertLibrary(database, work.library); });
        return {seconds * 1000, checksumOfFile(file)};
    }

    Reading readAll(Workload const&, std::string const& file) override {
        RawDatabase database(file, Synchronous::Normal);
        ReadSum sum;
        auto const seconds = secondsOf([&] {
            auto books = database.prepare("SELECT id, code, title, year, price, inPrint FROM Book");
            while (books.step()) {
                sum.add(books.text(1));
                sum.add(books.text(2));
                sum.add(books.integer(3));
                sum.add(books.real(4));
                sum.add(books.integer(5) != 0);
            }
        });
        return {seconds * 1000, sum.value};
    }

    Reading walkToAuthors(Workload const&, std::string const& file) override {
        RawDatabase database(file, Synchronous::Normal);
        ReadSum sum;
        auto const seconds = secondsOf([&] {
            auto books = database.prepare("SELECT id, author FROM Book"); // its read transaction spans the look-ups, too
            auto author = database.prepare("SELECT name FROM Author WHERE id = ?");
            while (books.step()) {
                author.bind(1, books.integer(1));
                author.step();
                sum.add(author.text(0));
                author.reset();
            }
        });
        return {seconds * 1000, sum.value};
    }

    Reading importJSON(Workload const& work, std::string const& file) override {
        auto database = RawDatabase::create(file, Synchronous::Full);
        auto const seconds = secondsOf([&] { Importer(database).import(work.json); });
        return {seconds * 1000, checksumOfFile(file)};
    }

    Reading residentBooks(std::string const& file) override {
        struct Book {
            std::int64_t key;
            std::string code, title;
            double price;
            int year;
            bool inPrint;
        };
        RawDatabase database(file, Synchronous::Normal);
        auto const before = residentMiB();
        std::vector<std::unique_ptr<Book>> held; // as ours: objects that others may refer to
        auto books = database.prepare("SELECT id, code, title, year, price, inPrint FROM Book");
        while (books.step())
            held.push_back(std::make_unique<Book>(Book{.key = books.integer(0),
                                                       .code = std::string(books.text(1)),
                                                       .title = std::string(books.text(2)),
                                                       .price = books.real(4),
                                                       .year = static_cast<int>(books.integer(3)),
                                                       .inPrint = books.integer(5) != 0}));
        ReadSum sum;
        for (auto const& book : held) {
            sum.add(std::string_view{book->code});
            sum.add(std::string_view{book->title});
            sum.add(std::int64_t{book->year});
            sum.add(book->price);
            sum.add(book->inPrint);
        }
        return {residentMiB() - before, sum.value};
    }
};

} // namespace

std::unique_ptr<Contender> makeRaw() { return std::make_unique<Raw>(); }

} // namespace Tessarin::benchmarks
