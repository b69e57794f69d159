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
    Reading,     // EIO when SQLite reads; other operations go through
    Full,        // ENOSPC where space is taken
    ShortWrite,  // half of what was to be written is, then EIO; other operations go through
    Memory,      // SQLite gets no memory, the system's calls neither
};
/// What fails: SQLite's operations and allocations, or the system's calls on the files that `PlainFiles` follows.
enum class Layer { SQLite, System };
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
/// SQLite unless said otherwise; to be changed while nothing is to fail.
void setLayer(Layer layer);

/// For a call of the system that begins: its errno when it shall fail, else 0.
enum class Needs { Nothing, Space };
int systemFault(Needs needs);
/// Whether it shall write but half of what it was given, and fail.
bool isShortWrite();

/// From now on the disk is a model: writes are kept there until they are synced, and syncs cost nothing. Files that exist
/// already are on the disk.
void beginPowerTrial(std::string folder);
/// At that operation, power goes: what the disk holds then is kept, and `atCut` is called. `random(n)` decides over every write
/// that was not synced whether it is there, torn or missing.
void cutPower(std::uint64_t at, std::function<std::uint64_t(std::uint64_t)> random, std::function<void()> atCut);
/// Writes the disk as it was left into `folder`; false when power never went.
bool writeDisk(std::string const& folder);
void endPowerTrial();

} // namespace FaultyFiles
} // namespace Tessarin::campaigns
