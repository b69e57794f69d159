#include "Tessarin/platform/objectgraph/persistence/stores/StoreMetadataPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ValueJSONPrivate.h"

#include <algorithm>

namespace Tessarin {

namespace {

/// Most texts need no parser to be read.
std::string textOf(std::string_view json) {
    auto const isPlain = [](char c) { return c >= ' ' && c < 0x7F && c != '"' && c != '\\'; };
    bool const isQuoted = json.size() >= 2 && json.front() == '"' && json.back() == '"';
    if (isQuoted && std::ranges::all_of(json.substr(1, json.size() - 2), isPlain))
        return std::string(json.substr(1, json.size() - 2));
    auto const value = valueOfTypedJSON(json);
    return value && value->isText() ? std::string(value->text()) : std::string();
}

} // namespace

Dictionary StoreMetadata::get() const {
    std::lock_guard const hold(mutex_);
    takeApart();
    return current_;
}

std::string StoreMetadata::text(std::string_view key) const {
    std::lock_guard const hold(mutex_);
    auto const unread = std::ranges::find(unread_, key, [](auto const& entry) { return std::string_view{entry.first}; });
    if (unread != unread_.end()) return textOf(unread->second);
    auto const* value = current_.find(key);
    return value && value->isText() ? std::string(value->text()) : std::string();
}

void StoreMetadata::set(Dictionary metadata) {
    std::lock_guard const hold(mutex_);
    takeApart();
    std::swap(current_, metadata);
}

bool StoreMetadata::hasUnsaved() const {
    std::lock_guard const hold(mutex_);
    return current_ != saved_;
}

void StoreMetadata::read(SQLite::Connection& connection) {
    std::vector<std::pair<std::string, std::string>> found;
    auto const query = connection.use("SELECT +key, +value FROM tessarin_metadata");
    while (query->step()) found.emplace_back(query->text(0), query->text(1));
    std::lock_guard const hold(mutex_);
    current_ = saved_ = {};
    unread_ = std::move(found);
}

/// The caller holds the lock.
void StoreMetadata::takeApart() const {
    if (unread_.empty()) return;
    for (auto const& [key, json] : std::exchange(unread_, {}))
        if (auto value = valueOfTypedJSON(json)) saved_.set(key, std::move(*value));
    current_ = saved_;
}

void StoreMetadata::write(SQLite::Connection& connection) {
    std::lock_guard const hold(mutex_);
    written_.reset();
    if (!unread_.empty()) return;
    written_ = current_;
    auto const put = connection.use("INSERT OR REPLACE INTO tessarin_metadata (key, value) VALUES (?, ?)");
    for (auto const& [key, value] : *written_) {
        auto const* before = saved_.find(key);
        if (before && *before == value) continue;
        auto const text = typedJSON(value);
        put->bind(1, key.view());
        put->bind(2, std::string_view{text});
        put->run();
    }
    auto const erase = connection.use("DELETE FROM tessarin_metadata WHERE key = ?");
    for (auto const& [key, value] : saved_) {
        if (written_->contains(key)) continue;
        erase->bind(1, key.view());
        erase->run();
    }
}

void StoreMetadata::confirm() {
    std::lock_guard const hold(mutex_);
    if (written_) saved_ = *std::exchange(written_, std::nullopt);
}

} // namespace Tessarin
