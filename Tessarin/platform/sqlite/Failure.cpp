#include "Tessarin/platform/sqlite/Failure.h"

#include <sqlite3.h>

namespace Tessarin::SQLite {
namespace {

Ref<NSError> errorOf(int code, int systemError, std::string const& message, std::string const& path) {
    Dictionary info{{NSLocalizedDescriptionKey, Value(message)}};
    if (!path.empty()) info.set(NSFilePathErrorKey, path);
    if (systemError != 0) info.set(NSUnderlyingErrorKey, NSError::errorWithErrno(systemError, path));
    return NSError::errorWithDomain(NSSQLiteErrorDomain, code, std::move(info));
}

} // namespace

Failure::Failure(int code, int systemError, std::string message, std::string const& path)
    : ErrorException(errorOf(code, systemError, message, path)),
      code_(code),
      systemError_(systemError),
      message_(std::move(message)) {}

Failure Failure::of(sqlite3* handle, int code, std::string const& path) {
    if (!handle) return {code, 0, sqlite3_errstr(code), path};
    // The connection's own words belong to its last error, which may be another.
    auto const extended = sqlite3_extended_errcode(handle);
    bool const isLast = (extended & 0xFF) == (code & 0xFF);
    auto const isSystems = (code & 0xFF) == SQLITE_IOERR || (code & 0xFF) == SQLITE_CANTOPEN || (code & 0xFF) == SQLITE_FULL;
    return {isLast ? extended : code, isSystems ? sqlite3_system_errno(handle) : 0,
            isLast ? sqlite3_errmsg(handle) : sqlite3_errstr(code), path};
}

} // namespace Tessarin::SQLite
