#pragma once
#include <cstdint>
#include <sqlite3.h>
#include <string>
#include <vector>

namespace Tessarin::benchmarks {

struct Note {
    std::int64_t key = 0;
    std::string title, text;
    double created = 0;
};

/// Notes as nobody could write them: words by frequency, some with diacritics, "wanted" in three of five.
std::vector<Note> notes(int count, unsigned seed = 1);

/// Notes by hand: SQLite with FTS5 over external content and its own tokenizer.
class Raw {
public:
    explicit Raw(std::string const& place);
    ~Raw();
    Raw(Raw const&) = delete;
    Raw& operator=(Raw const&) = delete;

    void make();
    /// In one transaction.
    void insert(std::vector<Note> const& notes);
    /// Gives a note another text, in a transaction of its own.
    void change(std::int64_t key, std::string const& text);
    std::vector<Note> find(std::string const& expression, bool isFirstByRank);
    /// The first ones, those that were made last before the others.
    std::vector<Note> latest(std::string const& expression, std::size_t count);

private:
    void run(char const* sql);
    sqlite3_stmt* statement(sqlite3_stmt*& kept, char const* sql);
    void finish(sqlite3_stmt* statement);
    std::vector<Note> rowsOf(sqlite3_stmt* read, std::string const& expression);

    sqlite3* handle_ = nullptr;
    sqlite3_stmt *insert_ = nullptr, *index_ = nullptr, *read_ = nullptr, *update_ = nullptr, *forget_ = nullptr,
                 *latest_ = nullptr;
};

} // namespace Tessarin::benchmarks
