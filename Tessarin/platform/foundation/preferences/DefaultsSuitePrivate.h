#pragma once
#include "Tessarin/platform/foundation/preferences/DefaultsDocumentPrivate.h"
#include "Tessarin/platform/foundation/preferences/DefaultsFilePrivate.h"
#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include "Tessarin/platform/runtime/TextHashPrivate.h"
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Tessarin::defaults {

/// The settings of one file: in memory for reading and writing, and now and then made one with the file. What has been set here
/// and is not written yet outranks what others wrote; for everything else the file counts. Any thread.
class DefaultsSuite : public std::enable_shared_from_this<DefaultsSuite> {
public:
    explicit DefaultsSuite(std::string const& path);
    /// To be called once, before anything else. Of an ill-formed file what is well-formed in it counts; one that cannot be read
    /// gives no settings. A line on standard error says so.
    void begin();

    Value value(std::string_view key) const {
        std::lock_guard const hold(lock_);
        auto const found = entries_.find(key);
        return found == entries_.end() ? Value() : found->second.value;
    }
    /// Absent removes. Written after a quiet second, or when the process exits.
    void set(std::string_view key, Value value);
    Dictionary values() const;

    /// Writes what was set and reads what others wrote. Null, or why that could not be; then nothing is lost but time.
    Ref<NSError> synchronize();
    /// Has the file read, soon.
    void fileMayHaveChanged();
    /// Whether this process, not one it was forked from, has something to write.
    bool hasUnwritten() const;

    /// Whom notices of changes name as their sender.
    Cell<WeakRef<NSUserDefaults>> home;

private:
    struct Entry {
        Value value;
        std::uint64_t change = 0; // its number while it is not written, else 0
    };
    using Entries = std::unordered_map<Text, Entry, TextHash, std::equal_to<>>;
    struct Unwritten {
        std::vector<Dictionary::Entry> changes;
        std::vector<std::uint64_t> numbers;
    };

    /// A text that is not TOML, and why.
    struct IllFormed {
        std::string text;
        Ref<NSError> problem;
    };

    void noticeFork();
    Unwritten unwritten();
    void markWritten(Unwritten const& written);
    void watch();
    void read();
    void readOrWarn();
    void salvage(std::string text, Ref<NSError> const& problem);
    void adopt(DefaultsDocument document);
    void write(Unwritten const& unwritten);
    static void warn(std::string const& line);
    void writeSoon(std::uint64_t number);
    void writeWhenQuiet(std::uint64_t seen, int rounds);
    void writeOrRetry(double pause);
    void tellSoon();
    void tell();

    static constexpr double settleSeconds = 0.02; // for editors, which replace a file in several steps

    mutable SpinLock lock_; // for the memory: all up to fileMutex_
    Entries entries_;       // an absent value is a removal that is not written yet
    std::vector<Entries::value_type*> dirty_; // the entries with a change number
    std::uint64_t changes_ = 0;
    std::uint64_t inherited_ = 0; // up to here changes were made by the process that this one was forked from
    std::uint32_t forks_; // when it was last looked
    bool writeIsDue_ = false, readIsDue_ = false, noticeIsDue_ = false;
    std::unordered_set<Text, TextHash, std::equal_to<>> othersKeys_; // changed by others since the last notice
    std::string lastProblem_; // of writing, that was printed

    std::mutex fileMutex_; // for the file; taken before lock_
    DefaultsFile const file_;
    DefaultsDocument known_; // the file as it was last read or written; of an ill-formed one what could be read
    std::optional<IllFormed> illFormed_; // what the file says instead, as long as that is so
    std::string unreadable_; // why it could not be read, when that was printed
};

} // namespace Tessarin::defaults
