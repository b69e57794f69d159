#include "Tessarin/platform/foundation/preferences/DefaultsSuitePrivate.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/preferences/DefaultsTextPrivate.h"
#include "Tessarin/platform/foundation/preferences/DefaultsWatchPrivate.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fmt/format.h>
#include <pthread.h>
#include <chrono>
#include <thread>

namespace Tessarin::defaults {
namespace {

constexpr double quietSeconds = 1;     // without a change, before changes are written
constexpr int mostRounds = 10;         // of such seconds, before they are written all the same
constexpr double settleSeconds = 0.02; // for editors, which replace a file in several steps
constexpr int mostLooks = 25;          // at such a file, so far apart
constexpr double longestPause = 64;    // seconds between two tries to write

dispatch_queue_t const& background() {
    static auto const& queue = *new dispatch_queue_t(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0));
    return queue;
}

void after(double seconds, Closure<void()> work) {
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(seconds * 1e9)), background(), std::move(work));
}

/// How often this process is the child of a fork.
std::uint32_t forks() {
    static std::atomic<std::uint32_t> count = 0;
    static int const once = ::pthread_atfork(nullptr, nullptr, [] { count.fetch_add(1, std::memory_order_relaxed); });
    static_cast<void>(once);
    return count.load(std::memory_order_relaxed);
}

void warn(std::string const& line) { static_cast<void>(std::fputs((asOneLine(line) + '\n').c_str(), stderr)); }

} // namespace

DefaultsSuite::DefaultsSuite(std::string const& path) : forks_(forks()), file_(path) {}

void DefaultsSuite::begin() {
    noticeIsDue_ = true; // not for the first reading: nobody has seen anything else yet
    file_.makeFolder();
    watch(); // before reading, so that no change falls between
    readOrWarn();
    std::lock_guard const hold(lock_);
    noticeIsDue_ = false;
    othersKeys_.clear();
}

void DefaultsSuite::watch() { DefaultsWatch::begin(file_.folder(), file_.name(), weak_from_this()); }

// Memory ----------------------------------------------------------------------------------------------------------------

void DefaultsSuite::set(std::string_view key, Value value) {
    bool isFirst = false, isNews = false;
    std::uint64_t number = 0;
    {
        std::lock_guard const hold(lock_);
        noticeFork();
        auto found = entries_.find(key);
        if (found == entries_.end()) {
            if (value.isAbsent()) return;
            if (!isUTF8(key)) fatal("a key of NSUserDefaults is not UTF-8");
            found = entries_.try_emplace(Text{key}).first;
        }
        auto& entry = found->second;
        std::swap(entry.value, value); // the old one is destroyed outside
        if (entry.change == 0) dirty_.push_back(&*found);
        number = entry.change = ++changes_;
        isFirst = !std::exchange(writeIsDue_, true);
        isNews = !std::exchange(noticeIsDue_, true);
    }
    if (isFirst) after(quietSeconds, [self = shared_from_this(), number] { self->writeWhenQuiet(number, 1); });
    if (isNews) tellSoon();
}

Dictionary DefaultsSuite::values() const {
    std::lock_guard const hold(lock_);
    Dictionary all;
    all.reserve(entries_.size());
    for (auto const& [key, entry] : entries_)
        if (!entry.value.isAbsent()) all.append(key, entry.value);
    return all;
}

/// In a forked child nobody will do what was due, and what the parent has set is the parent's to write.
void DefaultsSuite::noticeFork() {
    if (std::exchange(forks_, forks()) == forks()) return;
    inherited_ = changes_;
    writeIsDue_ = readIsDue_ = noticeIsDue_ = false;
}

bool DefaultsSuite::hasUnwritten() const {
    std::lock_guard const hold(lock_);
    auto const inherited = forks_ == forks() ? inherited_ : changes_;
    return std::ranges::any_of(dirty_, [=](auto const* entry) { return entry->second.change > inherited; });
}

DefaultsSuite::Unwritten DefaultsSuite::unwritten() {
    std::lock_guard const hold(lock_);
    noticeFork();
    Unwritten all;
    for (auto const* const entry : dirty_) {
        all.changes.push_back({entry->first, entry->second.value});
        all.numbers.push_back(entry->second.change);
    }
    return all;
}

void DefaultsSuite::markWritten(Unwritten const& written) {
    std::lock_guard const hold(lock_);
    for (std::size_t at = 0; at < written.changes.size(); ++at)
        if (auto& entry = entries_.find(written.changes[at].key)->second; entry.change == written.numbers[at]) entry.change = 0;
    std::erase_if(dirty_, [](auto const* entry) { return entry->second.change == 0; }); // the others were set again meanwhile
    for (auto const& [key, value] : written.changes) {
        auto const found = entries_.find(key);
        if (found->second.change == 0 && found->second.value.isAbsent()) entries_.erase(found);
    }
}

// The file --------------------------------------------------------------------------------------------------------------

Ref<NSError> DefaultsSuite::synchronize() {
    try {
        std::lock_guard const hold(fileMutex_);
        if (unwritten().changes.empty()) {
            read();
            return illFormed_ ? illFormed_->problem : nullptr;
        }
        {
            DefaultsFile::Lock const lock(file_);
            watch(); // the folder may be new
            read();
            auto const changes = unwritten();
            if (changes.changes.empty()) return nullptr;
            write(changes);
        }
        file_.finish();
        return nullptr;
    } catch (ErrorException const& failure) {
        return failure.error();
    }
}

void DefaultsSuite::readOrWarn() {
    std::lock_guard const hold(fileMutex_);
    std::string reason;
    try {
        read();
    } catch (ErrorException const& failure) {
        reason = failure.error()->localizedDescription();
        if (reason != unreadable_) warn(reason);
    }
    unreadable_ = std::move(reason);
}

/// Takes over what the file says. An editor that writes in place, or moves the file away first, leaves it ill-formed, empty or
/// missing for a moment: a file that was touched lately is looked at again before that is believed.
void DefaultsSuite::read() {
    for (int looks = mostLooks;; --looks) {
        auto text = file_.read();
        if (text == (illFormed_ ? illFormed_->text : known_.text())) return; // mostly our own writing
        bool const isFinal = looks == 0 || !file_.wasTouchedLately(settleSeconds * mostLooks);
        try {
            if (isFinal || !text.empty()) {
                adopt(DefaultsDocument(text));
                illFormed_.reset();
                return;
            }
        } catch (ErrorException const& failure) {
            if (isFinal) return salvage(std::move(text), failure.error());
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(settleSeconds));
    }
}

/// What is well-formed counts, and for the rest what was known before. The file stays as it is until something must be written.
void DefaultsSuite::salvage(std::string text, Ref<NSError> const& problem) {
    auto document = DefaultsDocument::salvaged(text);
    std::vector<Dictionary::Entry> missing;
    for (auto const& entry : known_.values())
        if (!document.values().contains(entry.key)) missing.push_back(entry);
    document.apply(missing);

    auto const words = fmt::format("{}: {}", file_.path(), problem->localizedDescription());
    auto const error = NSError::errorWithDomain(problem->domain(), problem->code(),
                                                {{NSLocalizedDescriptionKey, words}, {NSFilePathErrorKey, file_.path()}});
    bool const isNews = !illFormed_;
    illFormed_ = IllFormed{std::move(text), error};
    if (isNews) warn(words + "; what is well-formed in the file counts");
    adopt(std::move(document));
}

/// Takes over what others changed, but for what was set here and is not written yet.
void DefaultsSuite::adopt(DefaultsDocument document) {
    std::vector<Dictionary::Entry> differences;
    for (auto const& [key, value] : document.values())
        if (auto const* const old = known_.values().find(key); !old || !isSame(*old, value)) differences.push_back({key, value});
    for (auto const& [key, value] : known_.values())
        if (!document.values().contains(key)) differences.push_back({key, Value()});
    known_ = std::move(document);

    {
        std::lock_guard const hold(lock_);
        for (auto& [key, value] : differences) {
            auto const found = entries_.find(key);
            if (found != entries_.end() && found->second.change > inherited_) continue; // set here and not written yet
            auto& entry = found == entries_.end() ? entries_[key] : found->second;
            std::swap(entry.value, value);
            entry.change = 0; // what the parent has set it may have written meanwhile
            othersKeys_.insert(key);
        }
        std::erase_if(dirty_, [](auto const* entry) { return entry->second.change == 0; });
        for (auto const& difference : differences)
            if (auto const found = entries_.find(difference.key); found->second.change == 0 && found->second.value.isAbsent())
                entries_.erase(found);
        if (othersKeys_.empty() || std::exchange(noticeIsDue_, true)) return;
    }
    tellSoon();
}

void DefaultsSuite::write(Unwritten const& unwritten) {
    auto const place = illFormed_ ? file_.setAside(illFormed_->text) : std::string{};
    auto next = known_;
    next.apply(unwritten.changes);
    if (illFormed_ || next.text() != known_.text()) file_.write(next.text());
    if (illFormed_) warn(fmt::format("{} was written anew without what is not TOML; kept as {}", file_.path(), place));
    illFormed_.reset();
    known_ = std::move(next);
    markWritten(unwritten);
}

// Later -----------------------------------------------------------------------------------------------------------------

void DefaultsSuite::writeWhenQuiet(std::uint64_t seen, int rounds) {
    {
        std::lock_guard const hold(lock_);
        bool const isQuiet = changes_ == seen || rounds >= mostRounds;
        seen = changes_;
        rounds = isQuiet ? 0 : rounds + 1;
        if (isQuiet) writeIsDue_ = false; // from now on a change asks for the next time
    }
    if (rounds == 0) return writeOrRetry(quietSeconds);
    after(quietSeconds, [self = shared_from_this(), seen, rounds] { self->writeWhenQuiet(seen, rounds); });
}

void DefaultsSuite::writeOrRetry(double pause) {
    if (!hasUnwritten()) return;
    auto const problem = synchronize();
    auto const words = problem ? problem->localizedDescription() + "; the settings are kept in memory" : std::string{};
    {
        std::lock_guard const hold(lock_);
        bool const isKnown = std::exchange(lastProblem_, words) == words;
        if (!problem) return;
        if (!isKnown) warn(words);
        if (std::exchange(writeIsDue_, true)) return; // a later change asked already
    }
    after(pause, [self = shared_from_this(), pause] {
        {
            std::lock_guard const hold(self->lock_);
            self->writeIsDue_ = false;
        }
        self->writeOrRetry(std::min(pause * 2, longestPause));
    });
}

void DefaultsSuite::fileMayHaveChanged() {
    {
        std::lock_guard const hold(lock_);
        if (std::exchange(readIsDue_, true)) return;
    }
    after(settleSeconds, [weak = weak_from_this()] {
        auto const self = weak.lock();
        if (!self) return;
        {
            std::lock_guard const hold(self->lock_);
            self->readIsDue_ = false;
        }
        self->readOrWarn();
    });
}

void DefaultsSuite::tellSoon() {
    dispatch_async(dispatch_get_main_queue(), [weak = weak_from_this()] {
        if (auto const self = weak.lock()) self->tell();
    });
}

void DefaultsSuite::tell() {
    decltype(othersKeys_) keys;
    {
        std::lock_guard const hold(lock_);
        noticeIsDue_ = false;
        keys.swap(othersKeys_);
    }
    auto const sender = home.lock();
    if (!sender) return;
    List changed(keys.begin(), keys.end());
    NSNotificationCenter::defaultCenter()->postNotificationName(NSUserDefaultsDidChangeNotification, sender,
                                                                Dictionary{{NSUserDefaultsChangedKeys, Value(std::move(changed))}});
}

} // namespace Tessarin::defaults
