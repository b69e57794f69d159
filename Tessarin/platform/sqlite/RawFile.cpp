#include "Tessarin/platform/sqlite/RawFile.h"

#include "Tessarin/platform/sqlite/Failure.h"

#include <sqlite3.h>

namespace Tessarin::SQLite {

void RawFile::Close::operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }

RawFile::RawFile(std::string const& path) {
    sqlite3* opened = nullptr;
    auto code =
        sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE, nullptr);
    handle_.reset(opened);
    if (code == SQLITE_OK) code = sqlite3_file_control(opened, nullptr, SQLITE_FCNTL_FILE_POINTER, &file_);
    if (code == SQLITE_OK && (!file_ || !file_->pMethods)) code = SQLITE_CANTOPEN;
    if (code != SQLITE_OK) throw Failure::of(opened, code, path);
}

RawFile::~RawFile() { file_->pMethods->xUnlock(file_, SQLITE_LOCK_NONE); }

bool RawFile::read(std::int64_t offset, std::span<std::byte> into) {
    auto const code = file_->pMethods->xRead(file_, into.data(), static_cast<int>(into.size()), offset);
    if (code == SQLITE_IOERR_SHORT_READ) return false;
    if (code != SQLITE_OK) throw Failure::of(nullptr, code, {});
    return true;
}

bool RawFile::lockOut() {
    for (int const level : {SQLITE_LOCK_SHARED, SQLITE_LOCK_EXCLUSIVE}) {
        auto const code = file_->pMethods->xLock(file_, level);
        if (code == SQLITE_BUSY) return false;
        if (code != SQLITE_OK) throw Failure::of(nullptr, code, {});
    }
    return true;
}

} // namespace Tessarin::SQLite
