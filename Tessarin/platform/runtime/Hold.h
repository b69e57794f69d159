#pragma once

namespace Tessarin {

/// Holds a lock for as long as it lives. It is std::lock_guard without <mutex>, which public headers leave to those who need it.
template <class Lock> class Hold {
public:
    explicit Hold(Lock& lock) : lock_(lock) { lock_.lock(); }
    ~Hold() { lock_.unlock(); }
    Hold(Hold const&) = delete;
    Hold& operator=(Hold const&) = delete;

private:
    Lock& lock_;
};

} // namespace Tessarin
