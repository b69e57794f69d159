#pragma once
#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Tessarin::files {

/// An open file, closed at the end; negative when opening failed.
struct Descriptor {
    int number;
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor();
};

/// Throws the ErrorException of the current errno.
[[noreturn]] void fail(std::string const& path);
/// Throws when the path holds a zero byte ("%00" in a URL), behind which the system would see nothing.
void requirePath(std::string const& path);
/// All bytes of a file, also of one without a size such as a pipe. Throws ErrorException.
std::vector<std::byte> read(std::string const& path);
/// What is left to read of an open one; the path is for the error.
std::vector<std::byte> read(Descriptor const& file, std::string const& path);
/// The same as a text.
std::string readText(std::string const& path);
/// False, and errno, when not all of them could be written.
bool writeAll(int descriptor, std::span<std::byte const> bytes);
/// The file itself, where `path` is a symbolic link to one, be it there or not.
std::string resolved(std::string const& path);
/// Writes beside the file, syncs, renames. Throws ErrorException, and the file stays as it was.
void writeAtomically(std::string const& path, std::span<std::byte const> bytes);

} // namespace Tessarin::files
