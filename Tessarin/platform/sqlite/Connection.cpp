#include "Tessarin/platform/sqlite/Connection.h"

#include "Tessarin/platform/foundation/values/Hexadecimal.h"
#include "Tessarin/platform/sqlite/StatementLog.h"
#include "Tessarin/platform/sqlite/WordTokenizer.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace Tessarin::SQLite {
namespace {

int flagsOf(Access access) {
    int const common = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
    switch (access) {
    case Access::Read: return common | SQLITE_OPEN_READONLY;
    case Access::Write: return common | SQLITE_OPEN_READWRITE;
    case Access::Create: return common | SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    }
    return common;
}

/// In whole milliseconds, within what SQLite can count: about 24 days.
int busyMilliseconds(double seconds) {
    static constexpr double longest = 2'000'000;
    return seconds > 0 ? static_cast<int>(std::min(seconds, longest) * 1000) : 0;
}

/// A file may have been prepared by anybody: nothing in it is run, and its pages are looked at before they are trusted. Foreign
/// triggers and views stay where they are and have no effect; renaming a table leaves them alone, too.
void distrust(sqlite3* handle) {
    static constexpr std::pair<int, int> settings[] = {
        {SQLITE_DBCONFIG_DEFENSIVE, 1},   {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},     {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
        {SQLITE_DBCONFIG_ENABLE_VIEW, 0}, {SQLITE_DBCONFIG_LEGACY_ALTER_TABLE, 1}, {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
    };
    for (auto const& [setting, value] : settings) sqlite3_db_config(handle, setting, value, nullptr);
    sqlite3_limit(handle, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(handle, SQLITE_LIMIT_TRIGGER_DEPTH, 1);
    sqlite3_limit(handle, SQLITE_LIMIT_SQL_LENGTH, 64 << 20); // the texts in the file's schema, too
}

/// SQLite's own default, where nobody has set another one for the whole process, is to map nothing. A statement that says so again
/// costs as much as a short question.
bool mayMap(sqlite3* handle) {
    sqlite3_int64 bytes = -1; // asks
    return sqlite3_file_control(handle, "main", SQLITE_FCNTL_MMAP_SIZE, &bytes) != SQLITE_OK || bytes != 0;
}

std::string immutableURI(std::string const& path) {
    std::string uri = path.starts_with('/') ? "file://" : "file:";
    for (unsigned char const c : path) {
        if (std::isalnum(c) || c == '/' || c == '.' || c == '-' || c == '_')
            uri += static_cast<char>(c);
        else
            uri += '%' + hexadecimalFromBytes(std::as_bytes(std::span{&c, 1}));
    }
    return uri + "?immutable=1";
}

} // namespace

Connection::Connection(std::string path, ConnectionOptions const& options) : path_(std::move(path)) {
    sqlite3* opened = nullptr;
    auto const code = options.isImmutable ? sqlite3_open_v2(immutableURI(path_).c_str(), &opened,
                                                            flagsOf(Access::Read) | SQLITE_OPEN_URI, nullptr)
                                          : sqlite3_open_v2(path_.c_str(), &opened, flagsOf(options.access), nullptr);
    handle_.reset(opened); // also after a failure, whose words it holds
    if (code != SQLITE_OK) throw Failure::of(opened, code, path_);
    sqlite3_extended_result_codes(opened, 1);
    log_ = StatementLog::ifAskedFor(opened);
    leavesLog(options.leavesLog);
    setBusySeconds(options.busySeconds);
    if (options.hasFullText) addFullText(); // before anything of the file is looked at: it may have tables that need it
    distrust(opened);
    execute("PRAGMA cell_size_check = ON");
    if (mayMap(opened)) execute("PRAGMA mmap_size = 0"); // a mapped file that somebody cuts short ends the process
    execute("PRAGMA cache_size = -" + std::to_string(options.cacheKilobytes));
    execute("PRAGMA synchronous = " + std::to_string(static_cast<int>(options.synchronous)));
}

void Connection::prepareToWrite() {
    if (isReadyToWrite_) return;
    execute("PRAGMA secure_delete = OFF"); // Debian's SQLite overwrites deleted content with zeros by default
    isReadyToWrite_ = true;
}

Connection::~Connection() = default;

bool Connection::addFullText() noexcept {
    if (!hasFullText_) hasFullText_ = addWordTokenizer(handle());
    return hasFullText_;
}

void Connection::Close::operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }

void Connection::execute(std::string const& sql) {
    auto const code = sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) throw Failure::of(handle(), code, path_);
}

StatementUse Connection::use(std::string_view sql) {
    if (auto const found = statements_.find(sql); found != statements_.end()) {
        if (!StatementUse::isInUse(*found->second)) return StatementUse(*found->second);
        return StatementUse(*extras_.emplace_back(std::make_unique<Statement>(*this, sql)));
    }
    if (statements_.size() >= keptStatements) forgetStatements();
    auto made = std::make_unique<Statement>(*this, sql);
    return StatementUse(*statements_.emplace(sql, std::move(made)).first->second);
}

void Connection::forgetStatements() {
    ++timesForgotten_;
    std::erase_if(statements_, [](auto const& entry) { return !StatementUse::isInUse(*entry.second); });
    std::erase_if(extras_, [](auto const& extra) { return !StatementUse::isInUse(*extra); });
}

std::int64_t Connection::integer(std::string_view sql) {
    auto const query = use(sql);
    return query->step() ? query->integer(0) : 0;
}

std::string Connection::text(std::string_view sql) {
    auto const query = use(sql);
    return query->step() ? std::string(query->text(0)) : std::string();
}

std::size_t Connection::changedRows() const noexcept { return static_cast<std::size_t>(sqlite3_changes64(handle())); }

bool Connection::isInTransaction() const noexcept { return sqlite3_get_autocommit(handle()) == 0; }

bool Connection::isReadOnly() const noexcept { return sqlite3_db_readonly(handle(), "main") == 1; }

void Connection::setBusySeconds(double seconds) noexcept { sqlite3_busy_timeout(handle(), busyMilliseconds(seconds)); }

void Connection::leavesLog(bool leaves) noexcept {
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, leaves ? 1 : 0, nullptr);
}

/// It is read through the connection's own mapping: opening the file a second time and closing it would drop this process's locks
/// on it.
void const volatile* Connection::logIndex(int block) const noexcept {
    if (block == 0 && logStart_) return logStart_;
    if (sqlite3_uri_boolean(sqlite3_db_filename(handle(), "main"), "immutable", 0)) return nullptr; // it would make one
    sqlite3_file* file = nullptr;
    void volatile* region = nullptr;
    if (sqlite3_file_control(handle(), nullptr, SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK || !file || !file->pMethods)
        return nullptr;
    if (file->pMethods->iVersion < 2 || !file->pMethods->xShmMap) return nullptr;
    if (file->pMethods->xShmMap(file, block, 32 * 1024, 0, &region) != SQLITE_OK) return nullptr;
    if (block == 0) logStart_ = region;
    return region;
}

// The first 48 bytes change with every commit of any process.
Connection::LogState Connection::logState() const noexcept {
    LogState state{};
    auto const volatile* words = static_cast<std::uint64_t const volatile*>(logIndex(0));
    for (std::size_t at = 0; words && at < state.size(); ++at) state[at] = words[at];
    return state;
}

std::uint32_t Connection::logPagesInFile() const noexcept {
    static constexpr std::size_t place = 2 * sizeof(LogState) / sizeof(std::uint32_t); // behind two copies of the state
    auto const volatile* numbers = static_cast<std::uint32_t const volatile*>(logIndex(0));
    return numbers ? numbers[place] : 0;
}

namespace {

std::uint32_t numberIn(Connection::LogState const& state, std::size_t place) noexcept {
    std::uint32_t number = 0;
    std::memcpy(&number, reinterpret_cast<std::byte const*>(state.data()) + place, sizeof number);
    return number;
}

} // namespace

bool Connection::isOneCommitLater(LogState const& later, LogState const& state) noexcept {
    static constexpr std::size_t commits = 8;
    return numberIn(later, commits) == numberIn(state, commits) + 1;
}

std::uint32_t Connection::readableLogPages() const noexcept { return numberIn(logState(), 16); }

void Connection::noteCommits() noexcept { seenLog_ = logState(); }

bool Connection::hasNewerCommits() const noexcept {
    auto const now = logState();
    return now == LogState{} || now != seenLog_;
}

} // namespace Tessarin::SQLite
