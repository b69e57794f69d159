#pragma once

namespace Tessarin::engine {

/// The processors that the process may run on, at least 1.
int allowedProcessors() noexcept;
/// The same, and no more than the processor time that its control groups grant it; read once.
int usableProcessors() noexcept;

} // namespace Tessarin::engine
