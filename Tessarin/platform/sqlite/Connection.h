#pragma once
#include "Tessarin/platform/runtime/TextHashPrivate.h"
#include "Tessarin/platform/sqlite/Failure.h"
#include "Tessarin/platform/sqlite/Statement.h"
#include <array>
#include <memory>
#include <optional>
#include <unordered_map>

struct sqlite3;

namespace Tessarin::SQLite {

class StatementLog;

enum class Access { Read, Write, Create };
/// What a commit waits for: nothing, nothing but in checkpoints, or that it is on the disk.
enum class Synchronous { Off, Normal, Full };

struct ConnectionOptions {
    Access access = Access::Create;
    double busySeconds = 30;          // how long a statement waits while somebody else holds the lock it needs
    std::int64_t cacheKilobytes = 8192; // of database pages
    Synchronous synchronous = Synchronous::Full;
    bool hasFullText = true;  // whether tables of FTS5 may be used from the start; else after `addFullText`
    bool leavesLog = false;   // as `leavesLog` below, from the first look at the file
    bool isImmutable = false; // for reading only: nobody changes the file, and no lock is taken
};

/// A connection to one database file. Used by one thread at a time; what fails throws Failure.
///
///     Connection connection("/tmp/a.db");
///     auto const name = connection.use("SELECT name FROM author WHERE id = ?");
///     name->bind(1, key);
///     if (name->step()) show(name->text(0));
class TESSARIN_API Connection {
public:
    explicit Connection(std::string path, ConnectionOptions const& options = {});
    ~Connection();
    Connection(Connection const&) = delete;
    Connection& operator=(Connection const&) = delete;

    sqlite3* handle() const noexcept { return handle_.get(); }
    /// Null unless it was asked for.
    StatementLog* log() const noexcept { return log_.get(); }
    std::string const& path() const noexcept { return path_; }

    /// Runs statements that bind and give nothing; the text is not kept prepared.
    void execute(std::string const& sql);
    /// The prepared statement of that text, made on first use and kept; another one while the kept one is in use.
    StatementUse use(std::string_view sql);
    /// How often kept statements were forgotten, because there were too many: while it stays the same, a statement that `use` has
    /// given is still there, and may be used again without its text.
    std::uint64_t timesForgotten() const noexcept { return timesForgotten_; }
    /// The first column of the first row; 0 or empty when there is none.
    std::int64_t integer(std::string_view sql);
    std::string text(std::string_view sql);

    /// Has tables of FTS5 be used from now on; they may name the tokenizer `tessarin`, see `WordTokenizer.h`. Whether this SQLite
    /// can search in texts at all. Costs as much as a statement, which most connections need not pay.
    bool addFullText() noexcept;
    /// Sets what only matters to who writes, the first time. Every `Transaction` begins with it.
    void prepareToWrite();
    /// How many rows the last statement that changes any has changed.
    std::size_t changedRows() const noexcept;
    bool isInTransaction() const noexcept;
    /// Whether the file could only be opened for reading.
    bool isReadOnly() const noexcept;
    /// How long a statement waits from now on.
    void setBusySeconds(double seconds) noexcept;
    /// How many pages of the log are committed, as far as SQLite can read it. Only meaningful within a transaction.
    std::uint32_t readableLogPages() const noexcept;
    /// How many of those stand in the file itself by now.
    std::uint32_t logPagesInFile() const noexcept;
    /// A block of 32 KiB of the log's shared index, counted from 0; null without one. Others write to it.
    void const volatile* logIndex(int block) const noexcept;
    /// Leaves file and log exactly as they are when this goes, instead of moving the log's content into the file.
    void leavesLog(bool leaves) noexcept;
    /// Whether anybody, this process or another, has committed since the read transaction that this connection holds began.
    /// Only meaningful within one, and in a file with a write-ahead log. Costs a look at shared memory.
    bool hasNewerCommits() const noexcept;
    /// Remembers the state of the log for `hasNewerCommits`; call it right before the read transaction begins.
    void noteCommits() noexcept;
    /// Names the state of the file that the read transaction sees, the same for every connection of this process; absent when
    /// it is not known for certain, because somebody has committed since. Ask after the transaction's first read.
    using LogState = std::array<std::uint64_t, 6>;
    std::optional<LogState> seenState() const noexcept { return hasNewerCommits() ? std::nullopt : std::optional(seenLog_); }
    /// The state of the file now, whoever committed last; all 0 when it is not known.
    LogState logState() const noexcept;
    /// Whether a single commit leads from one to the other.
    static bool isOneCommitLater(LogState const& later, LogState const& state) noexcept;

private:
    static constexpr std::size_t keptStatements = 200;
    struct Close {
        void operator()(sqlite3* handle) const noexcept;
    };
    void forgetStatements();

    std::string path_;
    std::unique_ptr<StatementLog> log_; // before the connection, which tells it until the end
    std::unique_ptr<sqlite3, Close> handle_; // before the statements, which go first
    std::unordered_map<std::string, std::unique_ptr<Statement>, TextHash, std::equal_to<>> statements_;
    std::vector<std::unique_ptr<Statement>> extras_; // made while the kept one was in use; freed with the connection
    std::uint64_t timesForgotten_ = 0;
    mutable void const volatile* logStart_ = nullptr; // of its index: it stays where it is
    LogState seenLog_{};
    bool hasFullText_ = false;
    bool isReadyToWrite_ = false;
};

} // namespace Tessarin::SQLite
