#include "Tessarin/platform/sqlite/GivenRows.h"

#include <sqlite3.h>

#include <new>

namespace Tessarin::SQLite {
namespace {

constexpr char const* name = "tessarin_rows"; // of what `table` names

} // namespace

struct GivenRows::Module {
    struct Table : sqlite3_vtab {
        GivenRows* rows;
    };
    struct Cursor : sqlite3_vtab_cursor {
        std::size_t at;
    };
    template <class Derived, class Base> static int make(Derived content, Base*& made) {
        auto* const memory = sqlite3_malloc(sizeof(Derived));
        if (memory) made = ::new (memory) Derived(content);
        return memory ? SQLITE_OK : SQLITE_NOMEM;
    }
    static GivenRows& rowsOf(sqlite3_vtab_cursor* cursor) { return *static_cast<Table*>(cursor->pVtab)->rows; }
    static std::size_t& placeOf(sqlite3_vtab_cursor* cursor) { return static_cast<Cursor*>(cursor)->at; }

    static int connect(sqlite3* connection, void* rows, int, char const* const*, sqlite3_vtab** made, char**) {
        auto const code = sqlite3_declare_vtab(connection, static_cast<GivenRows*>(rows)->declaration_.c_str());
        if (code != SQLITE_OK) return code;
        sqlite3_vtab_config(connection, SQLITE_VTAB_DIRECTONLY);
        return make(Table{{}, static_cast<GivenRows*>(rows)}, *made);
    }
    static int disconnect(sqlite3_vtab* connected) {
        sqlite3_free(static_cast<Table*>(connected));
        return SQLITE_OK;
    }
    /// It can only be read from one end to the other.
    static int plan(sqlite3_vtab*, sqlite3_index_info*) { return SQLITE_OK; }
    static int open(sqlite3_vtab*, sqlite3_vtab_cursor** made) { return make(Cursor{}, *made); }
    static int close(sqlite3_vtab_cursor* cursor) {
        sqlite3_free(static_cast<Cursor*>(cursor));
        return SQLITE_OK;
    }
    static int begin(sqlite3_vtab_cursor* cursor, int, char const*, int, sqlite3_value**) {
        placeOf(cursor) = 0;
        return SQLITE_OK;
    }
    static int next(sqlite3_vtab_cursor* cursor) {
        ++placeOf(cursor);
        return SQLITE_OK;
    }
    static int isAtEnd(sqlite3_vtab_cursor* cursor) { return placeOf(cursor) >= rowsOf(cursor).count_ ? 1 : 0; }
    static int read(sqlite3_vtab_cursor* cursor, sqlite3_context* context, int column) {
        (*rowsOf(cursor).give_)(placeOf(cursor), static_cast<std::size_t>(column), Cell(context));
        return SQLITE_OK;
    }
    static int readKey(sqlite3_vtab_cursor* cursor, sqlite3_int64* key) {
        *key = static_cast<sqlite3_int64>(placeOf(cursor));
        return SQLITE_OK;
    }
    static sqlite3_module const* functions() {
        static sqlite3_module const all = [] {
            sqlite3_module module{};
            module.xConnect = connect; // and no way to create one: it is there by its name
            module.xBestIndex = plan;
            module.xDisconnect = disconnect;
            module.xOpen = open;
            module.xClose = close;
            module.xFilter = begin;
            module.xNext = next;
            module.xEof = isAtEnd;
            module.xColumn = read;
            module.xRowid = readKey;
            return module;
        }();
        return &all;
    }
};

GivenRows::GivenRows(Connection& connection) {
    for (std::size_t at = 0; at < mostColumns; ++at) declaration_ += (at == 0 ? "CREATE TABLE x (" : ", ") + column(at);
    declaration_ += ")";
    auto const code = sqlite3_create_module_v2(connection.handle(), name, Module::functions(), this, nullptr);
    if (code != SQLITE_OK) throw Failure::of(connection.handle(), code, connection.path());
}

std::int64_t GivenRows::run(Statement& statement, std::size_t count, Give give) {
    struct Restoring {
        GivenRows& rows;
        ~Restoring() { rows.count_ = 0; }
    } const restoring{*this};
    count_ = count;
    give_ = &give;
    return statement.run();
}

void GivenRows::Cell::give(std::nullptr_t) const noexcept { sqlite3_result_null(context_); }
void GivenRows::Cell::give(std::int64_t value) const noexcept { sqlite3_result_int64(context_, value); }
void GivenRows::Cell::give(double value) const noexcept { sqlite3_result_double(context_, value); }
void GivenRows::Cell::give(std::string_view text) const noexcept {
    // A null pointer would give NULL instead of the empty text.
    sqlite3_result_text64(context_, text.data() ? text.data() : "", text.size(), SQLITE_STATIC, SQLITE_UTF8);
}
void GivenRows::Cell::give(std::span<std::byte const> bytes) const noexcept {
    sqlite3_result_blob64(context_, bytes.data() ? static_cast<void const*>(bytes.data()) : "", bytes.size(), SQLITE_STATIC);
}

} // namespace Tessarin::SQLite
