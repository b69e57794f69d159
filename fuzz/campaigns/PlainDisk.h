#pragma once
#include "fuzz/campaigns/ModelDisk.h"
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace Tessarin::campaigns {

/// What a disk may hold of a folder and all beneath it when power goes. A file's content is there once the file was synced,
/// and as in ModelDisk before that. Names (made, renamed, linked, removed) reach the disk in their order, as with a journal: up
/// to a random one of those since the last sync of a folder. Any thread.
class PlainDisk {
public:
    using Random = std::function<std::uint64_t(std::uint64_t)>;

    /// What is there now is on the disk; an empty name ends it and forgets all.
    void follow(std::string folder);
    /// Whether the path is beneath the folder.
    bool follows(std::string_view path) const;

    void madeFile(std::string const& path);
    void madeFolder(std::string const& path);
    void renamed(std::string const& from, std::string const& to);
    void linked(std::string const& from, std::string const& to);
    void removed(std::string const& path);
    void wrote(std::string const& path, std::int64_t at, std::string bytes);
    void truncated(std::string const& path, std::int64_t size);
    void synced(std::string const& path); // a file or a folder

    void cutAt(std::uint64_t operation, Random random, std::function<void()> atCut);
    void operationBegins();
    /// How many there were since it follows.
    std::uint64_t operations() const;
    /// Into an empty folder; false when power never went.
    bool writeTo(std::string const& folder);

private:
    using File = ModelDisk::File;
    using Names = std::map<std::string, std::shared_ptr<File>>; // by path in the folder; null is a folder

    std::string nameOf(std::string const& path) const { return path.substr(folder_.size() + 1); }
    File* fileAt(std::string const& path);
    void change(std::function<void(Names&)> change);

    mutable std::mutex mutex_;
    std::string folder_;
    Names now_, durable_;
    std::vector<std::function<void(Names&)>> pending_; // changes of names
    std::uint64_t operations_ = 0, cutAt_ = UINT64_MAX;
    Random random_;
    std::function<void()> atCut_;
    bool isCut_ = false;
    std::vector<std::pair<std::string, std::optional<std::string>>> left_; // names with their content; none: a folder
};

} // namespace Tessarin::campaigns
