#include "benchmarks/search/Raw.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <random>

namespace Tessarin::benchmarks {

std::vector<Note> notes(int count, unsigned seed) {
    std::mt19937 random(seed);
    auto const below = [&](unsigned bound) { return std::uniform_int_distribution<unsigned>(0, bound - 1)(random); };
    static constexpr char const* marked[] = {"ü", "é", "ñ", "ø"};
    std::vector<std::string> words(5000);
    std::mt19937 same(7);
    for (auto& word : words)
        for (auto letters = 3 + same() % 7; letters > 0; --letters)
            word += same() % 60 == 0 ? std::string(marked[same() % 4]) : std::string(1, static_cast<char>('a' + same() % 20));
    auto const text = [&](unsigned size) {
        std::string made;
        for (; size > 0; --size) made += words[std::min(below(5000), below(5000))] + (below(12) == 0 ? ". " : " ");
        return made;
    };
    std::vector<Note> all(static_cast<std::size_t>(count));
    for (auto& note : all) {
        note.key = &note - all.data() + 1;
        note.title = text(4);
        note.text = text(50);
        if (below(5) < 3)
            for (auto times = 1 + below(3); times > 0; --times) note.text += "wanted " + text(1 + below(9));
        note.created = static_cast<double>(note.key);
    }
    return all;
}

Raw::Raw(std::string const& place) {
    if (sqlite3_open(place.c_str(), &handle_) != SQLITE_OK) fatal("the benchmark's file cannot be opened");
    run("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA cache_size = -8192; PRAGMA secure_delete = OFF");
}

Raw::~Raw() {
    for (auto* statement : {insert_, index_, read_, update_, forget_, latest_}) sqlite3_finalize(statement);
    sqlite3_close(handle_);
}

void Raw::run(char const* sql) {
    if (sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fatal(sqlite3_errmsg(handle_));
}

sqlite3_stmt* Raw::statement(sqlite3_stmt*& kept, char const* sql) {
    if (!kept && sqlite3_prepare_v3(handle_, sql, -1, SQLITE_PREPARE_PERSISTENT, &kept, nullptr) != SQLITE_OK)
        fatal(sqlite3_errmsg(handle_));
    return kept;
}

void Raw::finish(sqlite3_stmt* statement) {
    if (sqlite3_step(statement) != SQLITE_DONE) fatal(sqlite3_errmsg(handle_));
    sqlite3_reset(statement);
}

void Raw::make() {
    run("CREATE TABLE note (id INTEGER PRIMARY KEY, version INTEGER NOT NULL, title TEXT, text TEXT, created REAL);"
        "CREATE VIRTUAL TABLE words USING fts5(title, text, content='note', content_rowid='id', "
        "tokenize=\"unicode61 remove_diacritics 2\")");
}

namespace {

void bind(sqlite3_stmt* statement, int at, std::string const& text) {
    sqlite3_bind_text64(statement, at, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

std::string textOf(sqlite3_stmt* statement, int column) {
    auto const* text = reinterpret_cast<char const*>(sqlite3_column_text(statement, column));
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

} // namespace

void Raw::insert(std::vector<Note> const& notes) {
    run("BEGIN IMMEDIATE");
    auto* const row = statement(insert_, "INSERT INTO note VALUES (?, 2, ?, ?, ?)");
    auto* const words = statement(index_, "INSERT INTO words (rowid, title, text) VALUES (?, ?, ?)");
    for (auto const& note : notes) {
        for (auto* each : {row, words}) {
            sqlite3_bind_int64(each, 1, note.key);
            bind(each, 2, note.title);
            bind(each, 3, note.text);
        }
        sqlite3_bind_double(row, 4, note.created);
        finish(row);
        finish(words);
    }
    run("COMMIT");
}

void Raw::change(std::int64_t key, std::string const& text) {
    run("BEGIN IMMEDIATE");
    auto* const forget = statement(
        forget_, "INSERT INTO words (words, rowid, title, text) SELECT 'delete', id, title, text FROM note WHERE id = ?");
    sqlite3_bind_int64(forget, 1, key);
    finish(forget);
    auto* const row = statement(update_, "UPDATE note SET version = version + 1, text = ?2 WHERE id = ?1");
    sqlite3_bind_int64(row, 1, key);
    bind(row, 2, text);
    finish(row);
    auto* const words = statement(index_, "INSERT INTO words (rowid, title, text) SELECT id, title, text FROM note WHERE id = ?");
    sqlite3_bind_int64(words, 1, key);
    finish(words);
    run("COMMIT");
}

std::vector<Note> Raw::find(std::string const& expression, bool isFirstByRank) {
    auto* const read = statement(
        read_, isFirstByRank
                   ? "SELECT n.* FROM words JOIN note n ON n.id = words.rowid WHERE words MATCH ? ORDER BY rank LIMIT 50"
                   : "SELECT n.* FROM words JOIN note n ON n.id = words.rowid WHERE words MATCH ?");
    return rowsOf(read, expression);
}

std::vector<Note> Raw::latest(std::string const& expression, std::size_t count) {
    auto* const read = statement(
        latest_, "SELECT n.* FROM words JOIN note n ON n.id = words.rowid WHERE words MATCH ? ORDER BY created DESC LIMIT ?");
    sqlite3_bind_int64(read, 2, static_cast<std::int64_t>(count));
    return rowsOf(read, expression);
}

std::vector<Note> Raw::rowsOf(sqlite3_stmt* read, std::string const& expression) {
    bind(read, 1, expression);
    std::vector<Note> found;
    while (sqlite3_step(read) == SQLITE_ROW)
        found.push_back({sqlite3_column_int64(read, 0), textOf(read, 2), textOf(read, 3), sqlite3_column_double(read, 4)});
    sqlite3_reset(read);
    return found;
}

} // namespace Tessarin::benchmarks
