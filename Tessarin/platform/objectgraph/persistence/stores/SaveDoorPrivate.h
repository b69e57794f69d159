#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Closure.h"
#include <cstddef>
#include <mutex>
#include <utility>

namespace Tessarin {

/// Whether the saves of a coordinator's contexts may begin, and how many are under way: its store is closed between them. Any
/// thread.
class SaveDoor {
public:
    enum class Saves { OwnChanges, WhatWasHandedUp };
    /// A save, for as long as it lives.
    class Entry {
    public:
        Entry(SaveDoor& door, Saves what) : door_(door), isInside_(door.enter(what)) {}
        ~Entry() {
            if (isInside_) door_.leave();
        }
        Entry(Entry const&) = delete;
        Entry& operator=(Entry const&) = delete;
        /// False: the door is shut, and nothing may be saved.
        bool isInside() const noexcept { return isInside_; }

    private:
        SaveDoor& door_;
        bool const isInside_;
    };

    /// From now on, until `open`, only what was handed up to a context is saved there: nothing new sets out for the store.
    void narrow() {
        std::lock_guard const hold(mutex_);
        isNarrow_ = true;
    }
    /// True when no save is under way: then none begins until `open`. Else nothing is changed, and `whenFree` is called once,
    /// by the thread of the last save that ends.
    bool shut(Closure<void()> whenFree) {
        std::lock_guard const hold(mutex_);
        if (inside_ == 0) return isShut_ = true;
        whenFree_ = std::move(whenFree);
        return false;
    }
    void open() {
        std::lock_guard const hold(mutex_);
        isShut_ = isNarrow_ = false;
    }

private:
    bool enter(Saves what) {
        std::lock_guard const hold(mutex_);
        if (isShut_ || (isNarrow_ && what == Saves::OwnChanges)) return false;
        ++inside_;
        return true;
    }
    void leave() {
        Closure<void()> free;
        {
            std::lock_guard const hold(mutex_);
            if (--inside_ == 0) free = std::exchange(whenFree_, {});
        }
        if (free) free();
    }

    std::mutex mutex_; // guards all
    std::size_t inside_ = 0;
    bool isNarrow_ = false, isShut_ = false;
    Closure<void()> whenFree_;
};

} // namespace Tessarin
