#include "benchmarks/store/RawBest.h"

#include <algorithm>

namespace Tessarin::benchmarks {

void BestInserter::insertBooks(std::span<Library::Book const> books) {
    links_.clear();
    for (auto const& book : books) {
        auto const key = insertBook(book);
        auto const [low, high] = std::minmax({keyOfTag(book.tags[0]), keyOfTag(book.tags[1])});
        links_.push_back({key, low});
        links_.push_back({key, high});
    }
    for (auto const& [owner, member] : links_) insertLink(owner, member);
}

namespace {

void inTransaction(BestDatabase& database, auto const& work) {
    database.begin();
    work();
    database.commit();
}

/// As `inTransaction`, for empty tables that `work` fills.
void withLateIndexes(BestDatabase& database, auto const& work) {
    inTransaction(database, [&] {
        for (auto const* index : sql::indexes) database.execute(("DROP INDEX " + sql::nameOfIndex(index)).c_str());
        work();
        for (auto const* index : sql::indexes) database.execute(index);
    });
}

/// Looks up no author twice.
class BestImporter : public sql::Importer<BestDatabase> {
public:
    explicit BestImporter(BestDatabase& database) : Importer(database) {
        for (auto authors = database.prepare("SELECT id, name FROM Author"); authors.step();)
            keys_.emplace(authors.text(1), authors.integer(0));
    }

protected:
    std::optional<std::int64_t> findAuthor(std::string_view name) override {
        auto const found = keys_.find(name);
        return found != keys_.end() ? std::optional(found->second) : std::nullopt;
    }
    void noteAuthor(std::string_view name, std::int64_t key) override { keys_.emplace(name, key); }

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>{}(name); }
    };
    std::unordered_map<std::string, std::int64_t, Hash, std::equal_to<>> keys_;
};

/// Runs of neighbours, first and last.
std::vector<std::pair<std::int64_t, std::int64_t>> runsOf(std::span<std::int64_t const> sorted) {
    std::vector<std::pair<std::int64_t, std::int64_t>> runs;
    for (auto const key : sorted)
        if (!runs.empty() && runs.back().second + 1 == key)
            runs.back().second = key;
        else
            runs.emplace_back(key, key);
    return runs;
}

void deleteBooks(BestDatabase& database) {
    inTransaction(database, [&] {
        std::vector<std::int64_t> found;
        auto books = database.prepare("SELECT id FROM Book WHERE year < ?");
        books.bind(1, std::int64_t{changedBefore});
        while (books.step()) found.push_back(books.integer(0));
        auto const runs = runsOf(found);
        for (auto const* sql :
             {"DELETE FROM Book_tags WHERE owner BETWEEN ? AND ?", "DELETE FROM Book WHERE id BETWEEN ? AND ?"}) {
            auto remove = database.prepare(sql);
            for (auto const& [first, last] : runs) {
                remove.bind(1, first);
                remove.bind(2, last);
                remove.run();
            }
        }
    });
}

std::uint64_t authorOf(std::string const& code, BestDatabase& database) {
    auto name = database.prepare("SELECT a.name FROM Book b JOIN Author a ON a.id = b.author WHERE b.code = ?");
    name.bind(1, code);
    name.step();
    ReadSum sum;
    sum.add(name.text(0));
    return sum.value;
}

/// A row for each transaction, as ours writes it for one new book: the same columns, the same number of bytes.
class HistoryRows {
public:
    explicit HistoryRows(BestDatabase& database) : insert_(prepared(database)) {}
    void add() {
        insert_.bind(1, 1e9);
        insert_.bind(2, std::int64_t{4711});
        insert_.bind(3, std::int64_t{0x123456789ABCDEF0});
        insert_.bind(4, std::string_view("1 22 333 4444 55555 666666 7777"));
        insert_.run();
    }

private:
    static RawStatement prepared(BestDatabase& database) {
        database.execute(
            "CREATE TABLE IF NOT EXISTS history (id INTEGER PRIMARY KEY, time REAL NOT NULL, process INTEGER NOT NULL, "
            "writer INTEGER NOT NULL, author TEXT, context TEXT, changes BLOB NOT NULL)");
        return database.prepare("INSERT INTO history (time, process, writer, changes) VALUES (?, ?, ?, ?)");
    }
    RawStatement insert_;
};

class RawBest : public SQLContender<BestDatabase, BestReader> {
public:
    RawBest() : SQLContender("rawbest") {}

    std::optional<Reading> insertAllKept(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Empty, [&](BestDatabase& database) {
            HistoryRows history(database);
            withLateIndexes(database, [&] {
                BestInserter inserter(database);
                inserter.insertAuthorsAndTags(work.library);
                inserter.insertBooks(work.library.books);
                history.add();
            });
        });
    }
    std::optional<Reading> insertMoreKept(Workload const& work, std::string const& file, std::size_t count,
                                          std::size_t share) override {
        return written(work, file, Start::Filled, [&](BestDatabase& database) {
            HistoryRows history(database);
            BestInserter inserter(database);
            inserter.findAuthorsAndTags(work.library);
            for (std::size_t at = 0; at < count; at += share)
                inTransaction(database, [&] {
                    inserter.insertBooks(std::span(work.more).subspan(at, share));
                    history.add();
                });
        });
    }

    Reading insertAll(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Empty, [&](BestDatabase& database) {
            withLateIndexes(database, [&] {
                BestInserter inserter(database);
                inserter.insertAuthorsAndTags(work.library);
                inserter.insertBooks(work.library.books);
            });
        });
    }
    Reading insertMore(Workload const& work, std::string const& file, std::size_t count, std::size_t share) override {
        return written(work, file, Start::Filled, [&](BestDatabase& database) {
            BestInserter inserter(database);
            inserter.findAuthorsAndTags(work.library);
            for (std::size_t at = 0; at < count; at += share)
                inTransaction(database, [&] { inserter.insertBooks(std::span(work.more).subspan(at, share)); });
        });
    }
    Reading deleteBooks(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Filled, [](BestDatabase& database) { benchmarks::deleteBooks(database); });
    }
    Reading importJSON(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Empty, [&](BestDatabase& database) {
            withLateIndexes(database, [&] { BestImporter(database).import(work.json); });
        });
    }
    Reading openAndFind(std::string const& code, std::string const& file) override {
        std::optional<BestDatabase> opened; // closed outside the time
        return timedInMs([&] { return authorOf(code, opened.emplace(file, BestDatabase::JustToRead())); });
    }
};

} // namespace

std::unique_ptr<Contender> makeRawBest() { return std::make_unique<RawBest>(); }

} // namespace Tessarin::benchmarks
