// The settings in memory; those of the file stand in DefaultsSuite+File.cpp, what happens a moment later in
// DefaultsSuite+Later.cpp.
#include "Tessarin/platform/foundation/preferences/DefaultsSuitePrivate.h"

#include "Tessarin/platform/foundation/preferences/DefaultsTextPrivate.h"
#include "Tessarin/platform/foundation/preferences/DefaultsWatchPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <pthread.h>
#include <utility>

namespace Tessarin::defaults {
namespace {

/// How often this process is the child of a fork.
std::uint32_t forks() {
    static std::atomic<std::uint32_t> count = 0;
    static int const once = ::pthread_atfork(nullptr, nullptr, [] { count.fetch_add(1, std::memory_order_relaxed); });
    static_cast<void>(once);
    return count.load(std::memory_order_relaxed);
}

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
    if (isFirst) writeSoon(number);
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

} // namespace Tessarin::defaults
