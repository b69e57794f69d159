#include "fuzz/campaigns/PlainDisk.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>

namespace Tessarin::campaigns {

namespace fs = std::filesystem;

void PlainDisk::follow(std::string folder) {
    Names found;
    if (!folder.empty())
        for (auto const& entry : fs::recursive_directory_iterator(folder)) {
            auto& file = found[entry.path().string().substr(folder.size() + 1)];
            if (entry.is_directory()) continue;
            std::ifstream input(entry.path(), std::ios::binary);
            file = std::make_shared<File>(File{.durable = {std::istreambuf_iterator<char>(input), {}}, .exists = true});
        }
    std::lock_guard const hold(mutex_);
    folder_ = std::move(folder);
    durable_ = now_ = std::move(found);
    pending_.clear();
    left_.clear();
    operations_ = 0;
    cutAt_ = UINT64_MAX;
    isCut_ = false;
}

bool PlainDisk::follows(std::string_view path) const {
    std::lock_guard const hold(mutex_);
    return !folder_.empty() && path.size() > folder_.size() + 1 && path.starts_with(folder_) && path[folder_.size()] == '/';
}

PlainDisk::File* PlainDisk::fileAt(std::string const& path) {
    auto const found = now_.find(nameOf(path));
    return found == now_.end() ? nullptr : found->second.get();
}

void PlainDisk::change(std::function<void(Names&)> change) {
    change(now_);
    pending_.push_back(std::move(change));
}

void PlainDisk::madeFile(std::string const& path) {
    std::lock_guard const hold(mutex_);
    if (!fileAt(path)) change([name = nameOf(path), file = std::make_shared<File>()](Names& names) { names[name] = file; });
}

void PlainDisk::madeFolder(std::string const& path) {
    std::lock_guard const hold(mutex_);
    change([name = nameOf(path)](Names& names) { names[name] = nullptr; });
}

void PlainDisk::renamed(std::string const& from, std::string const& to) {
    std::lock_guard const hold(mutex_);
    change([from = nameOf(from), to = nameOf(to)](Names& names) {
        Names moved;
        std::erase_if(names, [&](auto const& entry) {
            auto const& [name, file] = entry;
            bool const isMoved = name == from || name.starts_with(from + '/');
            if (isMoved) moved[to + name.substr(from.size())] = file;
            return isMoved || name == to;
        });
        names.merge(moved);
    });
}

void PlainDisk::linked(std::string const& from, std::string const& to) {
    std::lock_guard const hold(mutex_);
    change([from = nameOf(from), to = nameOf(to)](Names& names) {
        if (auto const found = names.find(from); found != names.end()) names[to] = found->second;
    });
}

void PlainDisk::removed(std::string const& path) {
    std::lock_guard const hold(mutex_);
    change([name = nameOf(path)](Names& names) { names.erase(name); });
}

void PlainDisk::wrote(std::string const& path, std::int64_t at, std::string bytes) {
    std::lock_guard const hold(mutex_);
    if (auto* const file = fileAt(path)) file->pending.push_back({false, at, std::move(bytes)});
}

void PlainDisk::truncated(std::string const& path, std::int64_t size) {
    std::lock_guard const hold(mutex_);
    if (auto* const file = fileAt(path)) file->pending.push_back({true, size, {}});
}

void PlainDisk::synced(std::string const& path) {
    std::lock_guard const hold(mutex_);
    if (auto* const file = fileAt(path)) return ModelDisk::settle(*file);
    durable_ = now_;
    pending_.clear();
}

void PlainDisk::cutAt(std::uint64_t operation, Random random, std::function<void()> atCut) {
    std::lock_guard const hold(mutex_);
    operations_ = 0;
    cutAt_ = operation;
    random_ = std::move(random);
    atCut_ = std::move(atCut);
}

void PlainDisk::operationBegins() {
    std::lock_guard const hold(mutex_);
    if (operations_++ != cutAt_ || folder_.empty() || isCut_) return;
    isCut_ = true;
    atCut_();
    auto names = durable_;
    auto const reached = random_(pending_.size() + 1);
    for (std::size_t at = 0; at < reached; ++at) pending_[at](names);
    for (auto const& [name, file] : names)
        left_.emplace_back(name, file ? std::optional(ModelDisk::leftOf(*file, random_)) : std::nullopt);
}

std::uint64_t PlainDisk::operations() const {
    std::lock_guard const hold(mutex_);
    return operations_;
}

bool PlainDisk::writeTo(std::string const& folder) {
    auto const [left, isCut] = [&] {
        std::lock_guard const hold(mutex_);
        return std::pair(left_, isCut_);
    }();
    for (auto const& [name, content] : left) {
        if (name.ends_with("-shm")) continue; // memory, not a file
        auto const path = fs::path(folder) / name;
        fs::create_directories(content ? path.parent_path() : path);
        if (content) std::ofstream(path, std::ios::binary) << *content;
    }
    return isCut;
}

} // namespace Tessarin::campaigns
