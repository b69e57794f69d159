#pragma once

namespace Tessarin::engine {

/// Starts a detached thread of that name (15 characters at most), which gets none but its own signals. False when the system has
/// no thread to give.
bool startThread(char const* name, void* (*enter)(void*), void* argument) noexcept;

} // namespace Tessarin::engine
