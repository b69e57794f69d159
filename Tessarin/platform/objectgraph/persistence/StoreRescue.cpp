#include "Tessarin/platform/objectgraph/persistence/StoreRescuePrivate.h"

#include "Tessarin/platform/foundation/NSError.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fmt/chrono.h>
#include <unistd.h>

namespace Tessarin {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t keptCount = 3;

/// In order of their names, which is the order of time.
std::vector<fs::path> rescuedIn(fs::path const& folder) {
    std::vector<fs::path> found;
    std::error_code none;
    for (fs::directory_iterator it(folder, none), end; it != end; it.increment(none))
        if (it->is_directory(none)) found.push_back(it->path());
    std::ranges::sort(found);
    return found;
}

fs::path makePlace(fs::path const& folder) {
    fs::create_directories(folder);
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    auto const nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    for (int attempt = 0;; ++attempt) {
        auto const place = folder / fmt::format("{:%Y%m%d-%H%M%S}.{:09}-{}-{}",
                                                fmt::gmtime(static_cast<std::time_t>(nanoseconds / 1'000'000'000)),
                                                nanoseconds % 1'000'000'000, ::getpid(), attempt);
        if (fs::create_directory(place)) return place;
    }
}

void keep(fs::path const& file, fs::path const& place) {
    std::error_code failed;
    fs::create_hard_link(file, place / file.filename(), failed);
    if (failed) fs::copy_file(file, place / file.filename()); // a file system without links
}

} // namespace

void rescueStore(std::string const& path) try {
    fs::path const file = fs::absolute(path);
    if (!fs::is_regular_file(file)) return;
    auto const owner = file.parent_path();
    auto const folder = owner.parent_path() / fmt::format(".{}.rescued", owner.filename().string());
    auto const earlier = rescuedIn(folder);
    std::error_code none;
    if (!earlier.empty() && fs::equivalent(file, earlier.back() / file.filename(), none)) return;

    auto const place = makePlace(folder);
    keep(file, place);
    for (auto const* ending : {"-wal", "-shm"})
        if (fs::path const beside = path + ending; fs::exists(beside)) keep(beside, place);

    auto all = rescuedIn(folder);
    for (std::size_t at = 0; at + keptCount < all.size(); ++at) fs::remove_all(all[at], none);
} catch (fs::filesystem_error const& failure) {
    throw ErrorException(NSError::errorWithErrno(failure.code().value(), failure.path1().string()));
}

} // namespace Tessarin
