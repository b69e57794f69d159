#pragma once
#include "Tessarin/Export.h"
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Paths of files as texts. Nothing is looked up on the disk, except for `expandingTilde`; no path is refused, and none need be
/// UTF-8. "/" at the end, and more than one between two names, mean nothing.
///
///     Path::appendingPathComponent("/tmp", "notes.txt");     // "/tmp/notes.txt"
///     Path::pathExtension("/tmp/notes.txt");                 // "txt"
///     Path::relativeTo("/home/ada/a", "/home/ada/b/c");      // "../../a"
namespace Tessarin::Path {

/// "c" of "/a/b/c" and of "c/"; "/" of "/"; "" of "".
TESSARIN_API std::string_view lastPathComponent(std::string_view path);
/// "/a/b" of "/a/b/c"; "/" of "/a" and of "/"; "" of "a", which leaves nothing to name.
TESSARIN_API std::string_view deletingLastPathComponent(std::string_view path);

/// What follows the last "." of the last component, without it: "gz" of "a.tar.gz". Empty where nothing follows it, or nothing
/// but dots precedes: "a.", ".profile", "..", "..a".
TESSARIN_API std::string_view pathExtension(std::string_view path);
/// Without that and its ".".
TESSARIN_API std::string_view deletingPathExtension(std::string_view path);

/// With one "/" between both. A component that begins with "/" is appended, too; an empty one changes nothing.
TESSARIN_API std::string appendingPathComponent(std::string_view path, std::string_view component);
/// With "." and `extension` behind the last component. Unchanged where there is no name to bear it ("", "/", "..") and for an
/// extension that is empty or holds a "/".
TESSARIN_API std::string appendingPathExtension(std::string_view path, std::string_view extension);

/// "/", "a", "b" of "/a//b/"; none of "".
TESSARIN_API std::vector<std::string> pathComponents(std::string_view path);
/// Whether it begins with "/". "~" is a name like others until `expandingTilde`.
TESSARIN_API bool isAbsolutePath(std::string_view path);

/// "~/a" for "/home/ada/a", where /home/ada is the user's home folder; other paths as they are.
TESSARIN_API std::string abbreviatingWithTilde(std::string_view path);
/// The home folder for "~" at the beginning, that of another user for "~name"; unchanged where the system knows none.
TESSARIN_API std::string expandingTilde(std::string_view path);

/// Without ".", "..", "//" and the "/" at the end, as far as can be said without a look at the disk: "a/.." is ".", ".." above
/// the root is the root, ".." at the beginning of a relative path stays. Where a name is a symbolic link, that may be another
/// file.
TESSARIN_API std::string standardized(std::string_view path);
/// The way from the folder `base` to `path`, both standardized: "../c", "." for the same. Absent where none can be told: from a
/// relative to an absolute path, the other way round, and from a base that begins with more ".." than the path.
TESSARIN_API std::optional<std::string> relativeTo(std::string_view path, std::string_view base);

} // namespace Tessarin::Path
