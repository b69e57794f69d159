#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <cerrno>
#include <fmt/format.h>
#include <sqlite3.h>

namespace Tessarin {
namespace {

/// System errors that no waiting mends: the path itself is wrong.
bool isOfPlace(int systemError) { return systemError == ENAMETOOLONG || systemError == ELOOP || systemError == EINVAL; }

bool isFinal(SQLite::Failure const& failure) {
    switch (failure.primaryCode()) {
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_ERROR: // a statement that does not fit the file: tables or columns are missing
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_TOOBIG:
    case SQLITE_FORMAT:
    case SQLITE_RANGE: return true;
    case SQLITE_CANTOPEN: return failure.code() == SQLITE_CANTOPEN_ISDIR || failure.systemError() == EISDIR;
    case SQLITE_IOERR: return failure.code() == SQLITE_IOERR_DATA;
    default: return false;
    }
}

Ref<NSError> openingError(Ref<NSError> const& cause, std::string const& why, StoreErrorCode code = StoreErrorCode::StoreOpen) {
    Dictionary more{{NSUnderlyingErrorKey, Value(cause)}};
    if (auto const& path = cause->userInfo()[NSFilePathErrorKey]; !path.isAbsent()) more.set(NSFilePathErrorKey, path);
    return storeError(code, "The store cannot be opened: " + why, std::move(more));
}

} // namespace

Refused Refused::because(std::string text, Dictionary more) {
    return Refused(storeError(StoreErrorCode::StoreOpen, "The store cannot be opened: " + std::move(text), std::move(more)));
}

Refused Refused::noRule(std::string const& entity, std::string const& property, std::string reason,
                        RecordsInTheWay const& records) {
    auto text = "The store's records cannot be brought to this model: " + entity + (property.empty() ? "" : "." + property) +
                ": " + reason;
    Dictionary more{{"entity", entity}, {"reason", std::move(reason)}};
    if (!property.empty()) more.set("property", property);
    if (records.count != 0) {
        text += fmt::format("; {} record{} in the way, such as number {}", records.count, records.count == 1 ? " is" : "s are",
                            records.example);
        if (!records.value.empty()) text += " (" + records.value + ")";
        more.set("count", records.count);
        more.set("example", records.example);
    }
    return Refused(storeError(StoreErrorCode::StoreIncompatibleModel, text + ".", std::move(more)));
}

Misplaced Misplaced::because(std::string text, std::string const& path) {
    return Misplaced(storeError(StoreErrorCode::StorePlace, "The store cannot be opened: " + std::move(text) + ": " + path,
                                {{NSFilePathErrorKey, path}}));
}

void throwVerdict(SQLite::Failure const& failure) {
    auto error = openingError(failure.error(), failure.message());
    if (isFinal(failure)) throw Refused(std::move(error));
    throw Postponed(std::move(error));
}

void throwVerdict(int systemError, std::string const& path) {
    auto const cause = NSError::errorWithErrno(systemError, path);
    if (isOfPlace(systemError)) throw Misplaced(openingError(cause, cause->localizedDescription(), StoreErrorCode::StorePlace));
    auto error = openingError(cause, cause->localizedDescription());
    if (systemError == EISDIR) throw Refused(std::move(error));
    throw Postponed(std::move(error));
}

} // namespace Tessarin
