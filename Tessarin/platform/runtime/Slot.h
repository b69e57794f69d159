#pragma once
#include <utility>

namespace Tessarin {

/// What a subscript that reads and writes returns: `home["name"] = x` calls `home.setSlot(key, x)`, and reading calls
/// `home.slot(key)`. It converts only as an rvalue, so that `auto v = home["name"]` cannot keep a reference by accident.
template <class Home, class Key, class V> class Slot {
public:
    Slot(Home& home, Key key) noexcept : home_(home), key_(std::move(key)) {}
    Slot(Slot const&) = delete;
    Slot& operator=(Slot const&) = delete;

    operator V() && { return home_.slot(key_); }
    V get() && { return home_.slot(key_); }
    void operator=(V value) && { home_.setSlot(key_, std::move(value)); }

private:
    Home& home_;
    Key key_;
};

} // namespace Tessarin
