#pragma once
#include "Tessarin/notifications/Notifier.h"

namespace Tessarin {

/// A registration for as long as this value lives. It leaves exactly its own watcher, whatever else leaves the channel at the
/// same time: it does not stand in `watchers`, so no removal by position can hit it, nor does its end move any position. Once
/// `disconnect` has returned no delivery begins; one that is under way on another thread may still be ending. It keeps its
/// channel. Any thread, also a watcher's own block and an operation of the serializer; one Connection by one thread at a time.
///
///     Notifier::Connection saved_ = changes->connect({.block = [this](auto const&) { reload(); }});
class TESSARIN_API Notifier::Connection {
public:
    Connection() = default; // to nothing
    Connection(Connection&& other) noexcept = default;
    /// Ends the registration that it replaces.
    Connection& operator=(Connection&& other) noexcept;
    ~Connection() { disconnect(); }

    void disconnect();
    /// False for none, after `disconnect`, and when a count has run out.
    bool isConnected() const;

private:
    friend class Notifier;
    explicit Connection(Ref<Watcher> watcher) : watcher_(std::move(watcher)) {}

    Ref<Watcher> watcher_;
};

} // namespace Tessarin
