#pragma once
#include "benchmarks/store/SQLImport.h"
#include "benchmarks/store/SQLReading.h"
#include "benchmarks/store/SQLWriting.h"

namespace Tessarin::benchmarks {

/// All rows in SQL over one kind of database: hand-written, or a peer that wraps SQLite. `Database(file, synchronous)` opens a
/// file with WAL and 8 MB of page cache.
template <class Database, class Reader = sql::Reader<Database>> class SQLContender : public Contender {
public:
    using Contender::Contender;

    Reading insertAll(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Empty, [&](Database& database) {
            sql::inTransaction(database, [&] {
                sql::Inserter<Database> inserter(database);
                inserter.insertAuthorsAndTags(work.library);
                inserter.insertBooks(work.library.books);
            });
        });
    }
    Reading insertMore(Workload const& work, std::string const& file, std::size_t count, std::size_t share) override {
        return written(work, file, Start::Filled, [&](Database& database) {
            sql::Inserter<Database> inserter(database);
            inserter.findAuthorsAndTags(work.library);
            for (std::size_t at = 0; at < count; at += share)
                sql::inTransaction(database, [&] { inserter.insertBooks(std::span(work.more).subspan(at, share)); });
        });
    }
    Reading readAll(Workload const& work, std::string const& file, Pass timed) override {
        return read(file)->readAll(timed, work.library.books.front().code);
    }
    Reading findByCode(Workload const& work, std::string const& file) override { return read(file)->findByCode(work.library); }
    Reading findAndSort(Workload const&, std::string const& file) override { return read(file)->findAndSort(); }
    Reading walkToAuthors(Workload const&, std::string const& file) override { return read(file)->walkToAuthors(); }
    Reading changeBooks(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Filled, [](Database& database) { sql::changeBooks(database); });
    }
    Reading deleteBooks(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Filled, [](Database& database) { sql::deleteBooks(database); });
    }
    Reading countBooks(Workload const&, std::string const& file) override { return read(file)->countBooks(); }
    Reading importJSON(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Empty, [&](Database& database) {
            sql::inTransaction(database, [&] { sql::Importer<Database>(database).import(work.json); });
        });
    }
    Reading openAndFind(std::string const& code, std::string const& file) override {
        std::optional<OpenReader> opened; // closed outside the time
        return timedInMs([&] { return opened.emplace(file).operator->()->authorOf(code); });
    }
    Reading residentBooks(std::string const& file) override { return read(file)->residentBooks(); }
    std::optional<Reading> updateInBatch(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Filled, [](Database& database) { sql::updateInBatch(database); });
    }
    std::optional<Reading> deleteInBatch(Workload const& work, std::string const& file) override {
        return written(work, file, Start::Filled, [](Database& database) { sql::deleteInBatch(database); });
    }

protected:
    enum class Start { Empty, Filled };

    /// A reader together with what it reads.
    class OpenReader {
    public:
        explicit OpenReader(std::string const& file) : database_(file, Synchronous::Normal) {}
        OpenReader(OpenReader const&) = delete;
        Reader* operator->() { return &reader_; }

    private:
        Database database_;
        Reader reader_{database_};
    };
    static Reading written(Workload const& workload, std::string const& file, Start start, auto const& work) {
        Cost cost;
        {
            Database database(file, workload.synchronous);
            if (start == Start::Empty) sql::inTransaction(database, [&] { sql::makeSchema(database); });
            cost = costOf([&] { work(database); });
        }
        return readingOf(cost, checksumOfFile(file));
    }
    static OpenReader read(std::string const& file) { return OpenReader(file); }
};

} // namespace Tessarin::benchmarks
