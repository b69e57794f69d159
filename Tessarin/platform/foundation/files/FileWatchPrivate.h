#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <string>

namespace Tessarin {

/// Tells when somebody touches a file: sets its times, or removes or moves it. All watches of the process share one descriptor of
/// the system's events, and the thread that serves subprocesses; as long as nothing is touched, nothing runs. Any thread.
///
///     int problem = 0;
///     auto const watch = FileWatch::of(path, [] (FileWatch::Event event) { … }, problem);
class TESSARIN_API FileWatch {
public:
    enum class Event {
        Touched,
        Gone, // the file is not there any more: this watch tells no more
    };
    /// Called on the thread of the events: it has to be brief.
    using Told = Closure<void(Event)>;

    /// Until it goes; a call may then be under way still. Null, and an errno: EMFILE, ENFILE or ENOSPC where the system gives no more
    /// descriptors or watches, ENOTSUP on a file system that tells of no changes by others (a network's, one in user space), EINVAL
    /// for what is no plain file. A link is not followed.
    static Ref<FileWatch> of(std::string const& path, Told told, int& problem);
    /// Tells, as Touched, when a file comes to be at that path, made or moved there, and Gone when its folder goes.
    static Ref<FileWatch> ofMaking(std::string const& path, Told told, int& problem);
    virtual ~FileWatch() = default;

protected:
    FileWatch() = default;
};

} // namespace Tessarin
