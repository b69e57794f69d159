#pragma once
#include <mutex>
#include <utility>

namespace Tessarin {

/// A map that several threads look up and change by contract, one entry at a time; the whole is a copy. Nothing of the caller's
/// runs while it is held, also not the destructors of values that are replaced.
template <class Map> class SharedMap {
public:
    using Key = typename Map::key_type;
    using Mapped = typename Map::mapped_type;

    SharedMap() = default;
    SharedMap(SharedMap const&) = delete;
    SharedMap& operator=(SharedMap const&) = delete;

    /// What is under the key, or else an empty value.
    Mapped find(Key const& key) const {
        std::lock_guard const hold(mutex_);
        auto const at = map_.find(key);
        return at == map_.end() ? Mapped{} : at->second;
    }
    void set(Key const& key, Mapped value) {
        std::lock_guard const hold(mutex_);
        std::swap(map_[key], value);
    }
    Map all() const {
        std::lock_guard const hold(mutex_);
        return map_;
    }
    void setAll(Map map) {
        std::lock_guard const hold(mutex_);
        std::swap(map_, map);
    }

private:
    mutable std::mutex mutex_;
    Map map_; // guarded by mutex_
};

} // namespace Tessarin
