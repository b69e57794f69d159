#pragma once
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/sqlite/Failure.h"

namespace Tessarin {

/// Why a file cannot be opened now, though perhaps later: thrown while a store is opened.
class Postponed : public ErrorException {
public:
    using ErrorException::ErrorException;
};

/// Records that keep a migration from being done, with one of them.
struct RecordsInTheWay {
    std::int64_t count = 0;
    std::int64_t example = 0; // its key
    std::string value; // of the example, in words; empty: it says nothing
};

/// Why a file will not be opened: thrown while a store is opened.
class Refused : public ErrorException {
public:
    using ErrorException::ErrorException;
    static Refused because(std::string text, Dictionary more = {});
    /// The records cannot be brought from the model of the file to the one it is opened with. `property` is empty where it is
    /// about the entity; without records in the way it follows from the models alone.
    static Refused noRule(std::string const& entity, std::string const& property, std::string reason,
                          RecordsInTheWay const& records = {});
};

/// Why no store can ever stand at a path, whatever stands there now: thrown while a store is opened.
class Misplaced : public ErrorException {
public:
    using ErrorException::ErrorException;
    static Misplaced because(std::string text, std::string const& path);
};

/// Throws what SQLite's failure means for opening a file: what is damaged or no database is refused, everything that may
/// pass (locks, space, descriptors, memory, permissions, devices) is postponed; a path that is wrong in itself is misplaced.
[[noreturn]] TESSARIN_API void throwVerdict(SQLite::Failure const& failure);
/// The same for a failed system call on `path`.
[[noreturn]] TESSARIN_API void throwVerdict(int systemError, std::string const& path);

} // namespace Tessarin
