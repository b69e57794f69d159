#pragma once
#include "Tessarin/platform/foundation/values/NSError.h"

struct sqlite3;

namespace Tessarin {

/// The domain of errors that SQLite reports; the code is its extended result code.
inline constexpr std::string_view NSSQLiteErrorDomain = "NSSQLiteErrorDomain";

namespace SQLite {

/// What SQLite reported, thrown by connections and statements.
class TESSARIN_API Failure : public ErrorException {
public:
    /// The error that `handle` (null: no memory for one) just had with result `code`; `path` is the file's.
    static Failure of(sqlite3* handle, int code, std::string const& path);
    Failure(int code, int systemError, std::string message, std::string const& path);

    int code() const noexcept { return code_; }                     // extended result code
    int primaryCode() const noexcept { return code_ & 0xFF; }
    int systemError() const noexcept { return systemError_; }       // errno of the call that failed, or 0
    std::string const& message() const noexcept { return message_; } // SQLite's own words

private:
    int code_;
    int systemError_;
    std::string message_;
};

} // namespace SQLite
} // namespace Tessarin
