#pragma once
#include "Tessarin/Export.h"
#include <cstdint>
#include <string>
#include <vector>

namespace Tessarin {

/// Standard folders, by their long-established numbers; others may be asked for and have no path.
enum class NSSearchPathDirectory : std::uint64_t {
    Library = 5,
    Document = 9,
    Desktop = 12,
    Caches = 13,
    ApplicationSupport = 14,
    Downloads = 15,
    Movies = 17,
    Music = 18,
    Pictures = 19,
};

/// Domains are bits: the user's is the only one that has folders.
enum class NSSearchPathDomainMask : std::uint64_t { User = 1, Local = 2, Network = 4, System = 8, All = 0xFFFF };

/// Whether the home folder is written out or as "~".
enum class ExpandTilde { Yes, No };

/// The paths of a standard folder. Documents, desktop, downloads and media are the XDG user directories (user-dirs.dirs, else
/// the English names in the home folder); library and application support are `$XDG_DATA_HOME`, caches `$XDG_CACHE_HOME`.
/// The environment is read at each call; nothing is created. Empty for other folders, without a home folder, and for
/// masks without the user's domain.
TESSARIN_API std::vector<std::string> NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory directory,
                                                                          NSSearchPathDomainMask domains,
                                                                          ExpandTilde expand = ExpandTilde::Yes);

/// The user's home folder: `$HOME`, else what the system's user table says; empty when there is none.
TESSARIN_API std::string NSHomeDirectory();
/// `$TMPDIR`, else /tmp; ends in "/".
TESSARIN_API std::string NSTemporaryDirectory();

} // namespace Tessarin
