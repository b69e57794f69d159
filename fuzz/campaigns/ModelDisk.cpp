#include "fuzz/campaigns/ModelDisk.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

namespace Tessarin::campaigns {
namespace {

constexpr std::size_t sector = 512;

std::string nameOf(std::string const& path) { return std::filesystem::path(path).filename().string(); }

void put(std::string& content, std::int64_t at, std::string_view bytes) {
    auto const end = static_cast<std::size_t>(at) + bytes.size();
    if (content.size() < end) content.resize(end, '\0');
    std::ranges::copy(bytes, content.begin() + at);
}

void apply(std::string& content, ModelDisk::File::Change const& change) {
    change.isTruncation ? content.resize(static_cast<std::size_t>(change.at), '\0') : put(content, change.at, change.bytes);
}

} // namespace

void ModelDisk::follow(std::string folder) {
    std::lock_guard const hold(mutex_);
    folder_ = std::move(folder);
    files_.clear();
    left_.clear();
    operations_ = 0;
    cutAt_ = UINT64_MAX;
    isCut_ = false;
}

bool ModelDisk::isFollowing() {
    std::lock_guard const hold(mutex_);
    return !folder_.empty();
}

std::shared_ptr<ModelDisk::File> ModelDisk::open(std::string const& path) {
    std::lock_guard const hold(mutex_);
    if (folder_.empty() || !path.starts_with(folder_)) return nullptr;
    auto& file = files_[nameOf(path)];
    if (!file || !std::filesystem::exists(path)) // whatever had that name
        file = std::make_shared<File>(File{.syncsFolder = path.ends_with("-wal") || path.ends_with("-journal")});
    return file;
}

void ModelDisk::write(File* file, std::int64_t at, std::string_view bytes) {
    if (!file) return;
    std::lock_guard const hold(mutex_);
    file->pending.push_back({false, at, std::string(bytes)});
}

void ModelDisk::truncate(File* file, std::int64_t size) {
    if (!file) return;
    std::lock_guard const hold(mutex_);
    file->pending.push_back({true, size, {}});
}

void ModelDisk::settle(File& file) {
    for (auto const& change : file.pending) apply(file.durable, change);
    file.pending.clear();
}

void ModelDisk::sync(File* file) {
    std::lock_guard const hold(mutex_);
    settle(*file);
    // With a new log or journal SQLite syncs the folder, too, and so whatever was removed there before.
    if (std::exchange(file->exists, true) || !file->syncsFolder) return;
    for (auto& [name, other] : files_)
        if (other->isRemoved) *other = {};
}

void ModelDisk::remove(std::string const& path) {
    std::lock_guard const hold(mutex_);
    auto const found = files_.find(nameOf(path));
    if (folder_.empty() || found == files_.end()) return;
    found->second->isRemoved = true; // its name may still be there after the cut, with what it held
    found->second->pending.clear();
}

void ModelDisk::cutAt(std::uint64_t operation, std::function<std::uint64_t(std::uint64_t)> random, std::function<void()> atCut) {
    std::lock_guard const hold(mutex_);
    operations_ = 0;
    cutAt_ = operation;
    random_ = std::move(random);
    atCut_ = std::move(atCut);
}

void ModelDisk::operationBegins() {
    std::lock_guard const hold(mutex_);
    if (folder_.empty() || isCut_ || operations_++ != cutAt_) return;
    isCut_ = true;
    atCut_();
    for (auto const& [name, file] : files_)
        if ((file->exists && !file->isRemoved) || random_(2) == 0) left_[name] = leftOf(*file, random_);
}

std::string ModelDisk::leftOf(File const& file, std::function<std::uint64_t(std::uint64_t)> const& random) {
    auto content = file.durable;
    auto changes = file.pending;
    if (random(2) == 0) // in another order
        for (std::size_t at = changes.size(); at > 1; --at) std::swap(changes[at - 1], changes[random(at)]);
    auto const isAllLost = random(8) == 0;
    for (auto const& change : changes) {
        if (isAllLost || random(3) == 0) continue;
        if (change.isTruncation || random(3) != 0) {
            apply(content, change);
            continue;
        }
        for (std::size_t from = 0; from < change.bytes.size(); from += sector) { // torn
            auto bytes = change.bytes.substr(from, sector);
            switch (random(3)) {
            case 0: continue;
            case 1: break;
            default:
                if (random(4) == 0) std::ranges::fill(bytes, static_cast<char>(random(256)));
            }
            put(content, change.at + static_cast<std::int64_t>(from), bytes);
        }
    }
    return content;
}

bool ModelDisk::writeTo(std::string const& folder) {
    std::lock_guard const hold(mutex_);
    for (auto const& [name, content] : left_)
        if (!name.ends_with("-shm")) std::ofstream(folder + "/" + name, std::ios::binary) << content;
    return isCut_;
}

} // namespace Tessarin::campaigns
