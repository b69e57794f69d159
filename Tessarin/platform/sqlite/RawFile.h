#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct sqlite3;
struct sqlite3_file;

namespace Tessarin::SQLite {

/// A database file as SQLite's own file layer sees it, without a look at what it means. To open and close the file in any other
/// way would drop the locks that this process holds on it. Used by one thread at a time; what fails throws Failure.
class TESSARIN_API RawFile {
public:
    explicit RawFile(std::string const& path);
    RawFile(RawFile const&) = delete;
    RawFile& operator=(RawFile const&) = delete;
    ~RawFile();

    /// False when the file is shorter.
    bool read(std::int64_t offset, std::span<std::byte> into);
    /// Locks out every other connection, of this process or another, until this goes. False when there is one that has read the
    /// file and is still open, or is about to.
    bool lockOut();

private:
    struct Close {
        void operator()(sqlite3* handle) const noexcept;
    };
    std::unique_ptr<sqlite3, Close> handle_;
    sqlite3_file* file_ = nullptr;
};

} // namespace Tessarin::SQLite
