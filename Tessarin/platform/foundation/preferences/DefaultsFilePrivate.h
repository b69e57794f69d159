#pragma once
#include "Tessarin/platform/foundation/files/FilesPrivate.h"
#include "Tessarin/platform/foundation/text/Path.h"
#include <string>
#include <string_view>

namespace Tessarin::defaults {

/// A preferences file that several processes read and replace. Everything throws ErrorException (an errno and the path).
/// What is made here belongs to the owner of the folder it is made in: a program that was once run as root leaves nothing behind
/// that its user cannot open.
class DefaultsFile {
public:
    /// A symbolic link is followed: what it leads to is replaced.
    explicit DefaultsFile(std::string const& path) : path_(files::resolved(path)), lockPath_(path + ".lock") {}

    std::string const& path() const noexcept { return path_; }
    std::string folder() const { return std::string{Path::deletingLastPathComponent(path_)}; }
    std::string name() const { return std::string{Path::lastPathComponent(path_)}; }

    /// A folder has to be there to be watched. Does nothing where it cannot be made, and makes none that a link leads to.
    void makeFolder() const;
    /// The whole text; empty when there is no file. EINVAL for what is no plain file.
    std::string read() const;
    /// Whether the file, or the folder where there is none, was changed within the last seconds.
    bool wasTouchedLately(double seconds) const;
    /// Replaces the file in one step that also a loss of power leaves whole. Under the lock only.
    void write(std::string_view text) const;
    /// After `write`: a loss of power does not bring the old file back. Without the lock, so that others who write again and
    /// again get in between.
    void finish() const;
    /// Writes the text into `<file>.broken`, or `.broken-2` and so on where that is taken, unless one of them says the same.
    /// Gives its path.
    std::string setAside(std::string_view text) const;

    /// Keeps other writers out, those of this process too; makes the folder. Gives up after ten seconds, since whoever
    /// holds the lock may have been stopped: EWOULDBLOCK.
    class Lock {
    public:
        explicit Lock(DefaultsFile const& file);

    private:
        files::Descriptor file_; // closing it unlocks
    };

private:
    std::string path_, lockPath_;
};

} // namespace Tessarin::defaults
