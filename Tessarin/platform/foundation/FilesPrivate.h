#pragma once
#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Tessarin::files {

/// Throws the ErrorException of the current errno.
[[noreturn]] void fail(std::string const& path);
/// All bytes of a file, also of one without a size such as a pipe. Throws ErrorException.
std::vector<std::byte> read(std::string const& path);
/// Writes beside the file, syncs, renames. Throws ErrorException, and the file stays as it was.
void writeAtomically(std::string const& path, std::span<std::byte const> bytes);

} // namespace Tessarin::files
