#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/FileWatchPrivate.h"
#include <string>

namespace Tessarin {

/// The file beside a store that whoever has saved touches after the commit, for those who watch it: NAME-notice for the file NAME.
/// It is empty, and has the permissions of the store's file. Any thread.
class TESSARIN_API SQLiteNotice {
public:
    static constexpr char const* ending = "-notice";

    /// Where the store's path is a link, it lies beside the file itself, as the log does.
    explicit SQLiteNotice(std::string const& database);

    /// Makes it where it is missing. What fails, fails silently: whoever would have been told finds out at his next save.
    void touch() const noexcept;
    /// As `FileWatch::of`; makes the file where `mayMake`.
    Ref<FileWatch> watch(bool mayMake, FileWatch::Told told, int& problem) const;
    /// Tells when somebody makes it. Null where that cannot be watched.
    Ref<FileWatch> watchForMaking(FileWatch::Told told) const;

private:
    int make() const noexcept;

    std::string const database_, path_;
};

} // namespace Tessarin
