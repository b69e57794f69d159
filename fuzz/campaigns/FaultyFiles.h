#pragma once
#include <cstdint>
#include <functional>
#include <string>

namespace Tessarin::campaigns {

/// SQLite's way to the files of this process, with faults on demand. Installed once, before the first store is opened; while
/// nothing is asked for, everything goes through. Any thread.
namespace FaultyFiles {

enum class Kind {
    InputOutput, // EIO, whatever the operation
    Full,        // ENOSPC where space is taken
    ShortWrite,  // half of what was to be written is, then EIO; other operations go through
    Memory,      // SQLite gets no memory
};
enum class Duration { Once, Sticky }; // sticky: until `heal`

void install();

/// Counts from now: operations on files, or allocations for Memory.
void count(Kind kind);
std::uint64_t counted();
/// The operation with that number from now, the first is 0, fails.
void fail(Kind kind, std::uint64_t at, Duration duration);
void heal();
/// How many operations failed since `fail`.
std::uint64_t failures();

/// From now on the disk is a model: writes are kept there until they are synced, and syncs cost nothing. Files that exist
/// already are on the disk.
void beginPowerTrial(std::string folder);
/// At that operation, power goes: what the disk holds then is kept, and `atCut` is called. `random(n)` decides over every write that was
/// not synced whether it is there, torn or missing.
void cutPower(std::uint64_t at, std::function<std::uint64_t(std::uint64_t)> random, std::function<void()> atCut);
/// Writes the disk as it was left into `folder`; false when power never went.
bool writeDisk(std::string const& folder);
void endPowerTrial();

} // namespace FaultyFiles
} // namespace Tessarin::campaigns
