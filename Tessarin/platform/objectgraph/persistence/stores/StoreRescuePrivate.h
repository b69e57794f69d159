#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRefusal.h"
#include <filesystem>
#include <sys/types.h>

namespace Tessarin {

/// The permissions of a store's folders: who may read its files may look for them there.
constexpr mode_t folderMode(mode_t fileMode) noexcept { return fileMode | ((fileMode & 0444) >> 2); }
/// Makes a folder and those on the way to it, each with these permissions; what exists keeps its own. False, and errno, when that
/// is impossible.
TESSARIN_API bool makeFolders(std::string const& path, mode_t mode);

/// The copies of refused stores, `.FOLDER.rescued/1`, `2` and so on beside a store's folder, the newest three of them. Older ones
/// go when they hold nothing but files that a store makes. What fails throws ErrorException.
class TESSARIN_API RescuedCopies {
public:
    RescuedCopies(std::string const& file, mode_t fileMode);

    /// Keeps links to (or copies of) the file, its log and its journal; the place, or that of the newest copy when it holds this
    /// very file already. Absent when there is nothing to keep.
    std::optional<std::string> keep() const;
    /// Moves the store's own folder, or what stands in its place, to `place` (absent: a new one), where only links to it may be
    /// so far, and makes an empty folder. Nothing is changed when it fails, but that the new folder may be missing.
    std::string moveFolder(std::optional<std::string> const& place) const;
    /// Removes a copy that holds nothing but files that a store makes; false when it stays.
    bool discard(std::filesystem::path const& place) const;

private:
    std::filesystem::path newPlace() const;
    std::vector<std::pair<std::uint64_t, std::filesystem::path>> all() const;
    bool isOurs(std::filesystem::path const& place) const;
    void prune(std::filesystem::path const& newest) const;

    std::filesystem::path const file_, owner_, folder_;
    mode_t const folderMode_;
};

/// Moves a refused store's folder aside, so that another store can be made in its place, under a lock file beside the folder.
/// False when what was judged is no longer there: then it is to be judged again. Throws ErrorException while another connection
/// has the file open, and where the folder cannot be moved. `copy` is its place; absent when the store was empty.
TESSARIN_API bool replaceStore(std::string const& file, StoreRefusal const& refusal, mode_t fileMode, std::optional<NSURL>& copy);

} // namespace Tessarin
