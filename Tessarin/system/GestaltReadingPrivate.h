#pragma once
#include "Tessarin/Export.h"
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Facts read from the system's files, which may be missing, cut off, or anything at all.
namespace Tessarin::Gestalt::reading {

/// The beginning of a regular file, at most a mebibyte; absent when there is none.
TESSARIN_API std::optional<std::string> file(std::string const& path);

/// NAME=value lines with the quoting of a shell; those that are ill formed are passed over.
TESSARIN_API std::map<std::string, std::string> assignments(std::string_view text);
/// The assignments of os-release below that folder, which is "" for the system's own.
TESSARIN_API std::map<std::string, std::string> osRelease(std::string const& root);

/// The number of a line "name:  12 kB" of /proc/self/status, without its unit.
TESSARIN_API std::optional<std::uint64_t> statusNumber(std::string_view status, std::string_view name);
/// Clock ticks between the system's start and the process's, of /proc/self/stat, whatever its name holds.
TESSARIN_API std::optional<std::uint64_t> startTicks(std::string_view stat);
/// Texts that each end with a zero byte.
TESSARIN_API std::vector<std::string> zeroEnded(std::string_view text);

/// What confines a process that sees these files; `variable` are environment variables.
TESSARIN_API std::optional<std::string> container(std::string const& root, char const* (*variable)(char const* name));

} // namespace Tessarin::Gestalt::reading
