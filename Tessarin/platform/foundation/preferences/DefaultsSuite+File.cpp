// Making the settings in memory one with those of the file.
#include "Tessarin/platform/foundation/preferences/DefaultsSuitePrivate.h"

#include "Tessarin/platform/foundation/preferences/DefaultsTextPrivate.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>
#include <utility>

namespace Tessarin::defaults {
namespace {

constexpr int mostLooks = 25; // at a file that was just touched, `settleSeconds` apart

} // namespace

void DefaultsSuite::warn(std::string const& line) { static_cast<void>(std::fputs((asOneLine(line) + '\n').c_str(), stderr)); }

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

} // namespace Tessarin::defaults
