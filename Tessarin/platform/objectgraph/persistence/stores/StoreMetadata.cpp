#include "Tessarin/platform/objectgraph/persistence/stores/StoreMetadataPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ValueJSONPrivate.h"

namespace Tessarin {

Dictionary StoreMetadata::get() const {
    std::lock_guard const hold(mutex_);
    return current_;
}

void StoreMetadata::set(Dictionary metadata) {
    std::lock_guard const hold(mutex_);
    std::swap(current_, metadata);
}

bool StoreMetadata::hasUnsaved() const {
    std::lock_guard const hold(mutex_);
    return current_ != saved_;
}

void StoreMetadata::read(SQLite::Connection& connection) {
    Dictionary found;
    auto const query = connection.use("SELECT key, value FROM tessarin_metadata");
    while (query->step())
        if (auto value = valueOfTypedJSON(query->text(1))) found.set(query->text(0), std::move(*value));
    std::lock_guard const hold(mutex_);
    current_ = found;
    saved_ = std::move(found);
}

void StoreMetadata::write(SQLite::Connection& connection) {
    std::lock_guard const hold(mutex_);
    written_ = current_;
    auto const put = connection.use("INSERT OR REPLACE INTO tessarin_metadata (key, value) VALUES (?, ?)");
    for (auto const& [key, value] : written_) {
        auto const* before = saved_.find(key);
        if (before && *before == value) continue;
        auto const text = typedJSON(value);
        put->bind(1, key.view());
        put->bind(2, std::string_view{text});
        put->run();
    }
    auto const erase = connection.use("DELETE FROM tessarin_metadata WHERE key = ?");
    for (auto const& [key, value] : saved_) {
        if (written_.contains(key)) continue;
        erase->bind(1, key.view());
        erase->run();
    }
}

void StoreMetadata::confirm() {
    std::lock_guard const hold(mutex_);
    saved_ = written_;
}

} // namespace Tessarin
