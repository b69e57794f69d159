#include "Tessarin/platform/sqlite/Statement.h"

#include "Tessarin/platform/sqlite/Connection.h"

#include <sqlite3.h>

namespace Tessarin::SQLite {

Statement::Statement(Connection& connection, std::string_view sql) : connection_(connection) {
    check(sqlite3_prepare_v3(connection.handle(), sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &handle_,
                             nullptr));
}

Statement::~Statement() { sqlite3_finalize(handle_); }

void Statement::check(int code) const {
    if (code != SQLITE_OK) throw Failure::of(connection_.handle(), code, connection_.path());
}

void Statement::bind(int at, std::int64_t value) { check(sqlite3_bind_int64(handle_, at, value)); }
void Statement::bind(int at, double value) { check(sqlite3_bind_double(handle_, at, value)); }
void Statement::bind(int at, std::string_view text) {
    // A null pointer would bind NULL instead of the empty text.
    check(sqlite3_bind_text64(handle_, at, text.data() ? text.data() : "", text.size(), SQLITE_STATIC, SQLITE_UTF8));
}
void Statement::bind(int at, std::span<std::byte const> bytes) {
    check(sqlite3_bind_blob64(handle_, at, bytes.data() ? static_cast<void const*>(bytes.data()) : "", bytes.size(),
                              SQLITE_STATIC));
}
void Statement::bindNull(int at) { check(sqlite3_bind_null(handle_, at)); }
void Statement::clearBindings() noexcept { sqlite3_clear_bindings(handle_); }

bool Statement::step() {
    auto const code = sqlite3_step(handle_);
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    auto failure = Failure::of(connection_.handle(), code, connection_.path());
    reset();
    throw failure;
}

void Statement::reset() noexcept { sqlite3_reset(handle_); }

std::int64_t Statement::run() {
    while (step()) {}
    reset();
    return sqlite3_changes64(connection_.handle());
}

int Statement::parameterCount() const noexcept { return sqlite3_bind_parameter_count(handle_); }
int Statement::columnCount() const noexcept { return sqlite3_column_count(handle_); }
bool Statement::isNull(int column) const noexcept { return sqlite3_column_type(handle_, column) == SQLITE_NULL; }
std::int64_t Statement::integer(int column) const noexcept { return sqlite3_column_int64(handle_, column); }
double Statement::real(int column) const noexcept { return sqlite3_column_double(handle_, column); }

std::string_view Statement::text(int column) const noexcept {
    auto const* text = reinterpret_cast<char const*>(sqlite3_column_text(handle_, column));
    return {text ? text : "", static_cast<std::size_t>(sqlite3_column_bytes(handle_, column))};
}

std::span<std::byte const> Statement::bytes(int column) const noexcept {
    auto const* bytes = static_cast<std::byte const*>(sqlite3_column_blob(handle_, column));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(handle_, column))};
}

std::string_view Statement::sql() const noexcept { return sqlite3_sql(handle_); }

} // namespace Tessarin::SQLite
