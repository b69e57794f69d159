#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin::campaigns {

/// What a disk may hold when power goes. A sync puts all earlier writes of its file on it; of the later ones each sector of 512
/// bytes may be there, be missing or be noise, in any order. A file that was never synced may be missing; the removal of a file
/// may not have happened. Any thread.
class ModelDisk {
public:
    struct File {
        std::string durable;
        bool exists = false; // on the disk
        bool isRemoved = false, syncsFolder = false;
        struct Change {
            bool isTruncation;
            std::int64_t at; // or the new size
            std::string bytes;
        };
        std::vector<Change> pending;
    };

    /// Files in that folder from now on; an empty name ends it and forgets them.
    void follow(std::string folder);
    bool isFollowing();
    /// Before it is opened; null when it is not followed. A file that a store closes late outlives what follows it.
    std::shared_ptr<File> open(std::string const& path);
    void write(File* file, std::int64_t at, std::string_view bytes);
    void truncate(File* file, std::int64_t size);
    void sync(File* file);
    void remove(std::string const& path);

    void cutAt(std::uint64_t operation, std::function<std::uint64_t(std::uint64_t)> random, std::function<void()> atCut);
    void operationBegins();
    bool writeTo(std::string const& folder);

    /// All that was written is on the disk.
    static void settle(File& file);
    /// What a cut leaves of a file.
    static std::string leftOf(File const& file, std::function<std::uint64_t(std::uint64_t)> const& random);

private:
    std::mutex mutex_;
    std::string folder_;
    std::map<std::string, std::shared_ptr<File>> files_; // by name
    std::uint64_t operations_ = 0, cutAt_ = UINT64_MAX;
    std::function<std::uint64_t(std::uint64_t)> random_;
    std::function<void()> atCut_;
    bool isCut_ = false;
    std::map<std::string, std::string> left_; // when power went
};

} // namespace Tessarin::campaigns
