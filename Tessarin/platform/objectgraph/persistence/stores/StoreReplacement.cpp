#include "Tessarin/platform/objectgraph/persistence/stores/StoreRescuePrivate.h"

#include "Tessarin/platform/foundation/files/FilesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteEmptinessPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/sqlite/RawFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Tessarin {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void failBusy(std::string const& path) {
    throw ErrorException(storeError(StoreErrorCode::StoreOpen, "The refused store is still open, so it is not replaced: " + path,
                                    {{NSFilePathErrorKey, path}}));
}

} // namespace

bool replaceStore(std::string const& file, StoreRefusal const& refusal, mode_t fileMode, std::optional<NSURL>& copy) try {
    auto const owner = fs::absolute(file).parent_path();
    auto const beside = (owner.parent_path() / ("." + owner.filename().native() + ".lock")).native();
    files::Descriptor const lock{::open(beside.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, fileMode)};
    if (lock.number < 0) files::fail(beside);
    if (::flock(lock.number, LOCK_EX | LOCK_NB) != 0) files::fail(beside);

    if (StoreRefusal::identityAt(refusal.place()) != refusal.identity()) return false;
    std::optional<SQLite::RawFile> held;
    if (std::error_code none; fs::is_regular_file(file, none))
        if (!held.emplace(file).lockOut()) failBusy(file);
    RescuedCopies const copies(file, fileMode);
    auto const place = copies.moveFolder(refusal.copy() ? std::optional(refusal.copy()->path()) : std::nullopt);
    held.reset();
    // What was empty when it was judged may have been written to before it was locked.
    bool const isEmpty = refusal.isOfEmptyStore() && holdsNothing((fs::path(place) / fs::path(file).filename()).native());
    if (!isEmpty || !copies.discard(place)) copy = NSURL::fileURLWithPath(place);
    return true;
} catch (fs::filesystem_error const& failure) {
    throw ErrorException(NSError::errorWithErrno(failure.code().value(), failure.path1().string()));
}

} // namespace Tessarin
