#include "Tessarin/platform/foundation/files/FileWatchPrivate.h"

#include "Tessarin/platform/foundation/processes/ProcessLoopPrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/runtime/Hold.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace Tessarin {
namespace {

using processes::Handle;
using processes::ProcessLoop;

/// File systems whose other users change files without a word to this system, or that do not say so reliably: those of networks,
/// of virtual machines' hosts, and in user space.
bool tellsOfChanges(int file) {
    static constexpr std::array<std::uint32_t, 12> silent{0x6969,     0x65735546, 0x01021997, 0xFF534D42, 0xFE534D42, 0x517B,
                                                          0x73757245, 0x5346414F, 0x00C36400, 0x0BD00BD0, 0x786F4256, 0x01161970};
    struct statfs status {};
    if (::fstatfs(file, &status) != 0) return false;
    return std::ranges::find(silent, static_cast<std::uint32_t>(status.f_type)) == silent.end();
}

class WatchedFile;

/// The one descriptor; never destroyed.
class Events final : public processes::Watch {
public:
    /// Null, and an errno, while there is no descriptor or thread for it.
    static Events* shared(int& problem);
    int add(std::string const& path, std::uint32_t events, Ref<WatchedFile> const& file);
    void remove(WatchedFile const& file);
    void ready() override;

private:
    explicit Events(Handle handle) : handle_(std::move(handle)) {}
    using Files = std::vector<Ref<WatchedFile>>;
    Files watching(int number, bool isGone);

    Handle const handle_;
    Mutex mutex_;
    std::multimap<int, WeakRef<WatchedFile>> files_; // by the number of the watch; guarded by mutex_
};

class WatchedFile final : public FileWatch {
public:
    WatchedFile(Events& events, Told told, std::string name = {})
        : told_(std::move(told)), name_(std::move(name)), events_(events) {}
    ~WatchedFile() override { events_.remove(*this); }

    /// A watched folder's events are about all that is in it.
    bool concerns(std::string_view name) const { return name_.empty() || name == name_; }

    Told const told_;
    std::string const name_; // in the folder that is watched; empty for a file
    int number = -1; // guarded by the mutex of the events

private:
    Events& events_;
};

Events* Events::shared(int& problem) {
    static Mutex mutex;
    static Events* events = nullptr; // guarded by mutex
    Hold const hold(mutex);
    if (events) return events;
    Handle handle{::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
    if (!handle) return problem = errno, nullptr;
    auto* const loop = ProcessLoop::current(problem);
    if (!loop) return nullptr;
    std::unique_ptr<Events> made(new Events(std::move(handle)));
    auto const done = dispatch_semaphore_create(0);
    loop->post([&] { // what is watched is the loop's thread's
        problem = loop->watch(made->handle_.number(), ProcessLoop::For::Reading, *made);
        dispatch_semaphore_signal(done);
    });
    dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
    if (problem == 0) events = made.release();
    return events;
}

int Events::add(std::string const& path, std::uint32_t events, Ref<WatchedFile> const& file) {
    Hold const hold(mutex_); // an event that comes at once finds it
    int const number =
        ::inotify_add_watch(handle_.number(), path.c_str(), events | IN_DELETE_SELF | IN_MOVE_SELF | IN_DONT_FOLLOW);
    if (number < 0) return errno;
    file->number = number;
    files_.emplace(number, file);
    return 0;
}

void Events::remove(WatchedFile const& file) {
    Hold const hold(mutex_);
    if (file.number < 0) return;
    auto const [first, last] = files_.equal_range(file.number); // it is dying, and so are perhaps others
    for (auto at = first; at != last;) at = at->second.expired() ? files_.erase(at) : std::next(at);
    if (!files_.contains(file.number)) ::inotify_rm_watch(handle_.number(), file.number);
}

Events::Files Events::watching(int number, bool isGone) {
    Files found;
    Hold const hold(mutex_);
    auto const [first, last] = number < 0 ? std::pair(files_.begin(), files_.end()) : files_.equal_range(number);
    for (auto at = first; at != last; ++at)
        if (auto file = at->second.lock()) {
            if (isGone) file->number = -1; // another file may have that number soon
            found.push_back(std::move(file));
        }
    if (isGone) files_.erase(first, last);
    return found;
}

void Events::ready() {
    alignas(inotify_event) std::array<char, 4096> buffer;
    for (;;) {
        auto const count = ::read(handle_.number(), buffer.data(), buffer.size());
        if (count <= 0) return;
        for (auto const* at = buffer.data(); at < buffer.data() + count;) {
            auto const& event = *reinterpret_cast<inotify_event const*>(at);
            std::string_view const name = event.len == 0 ? "" : event.name; // ends with its first zero
            at += sizeof event + event.len;
            bool const isGone = (event.mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) != 0;
            if ((event.mask & IN_MOVE_SELF) != 0) ::inotify_rm_watch(handle_.number(), event.wd);
            for (auto const& file : watching(event.wd, isGone)) // -1: too many events, of whatever file
                if (isGone || event.wd < 0 || file->concerns(name))
                    file->told_(isGone ? FileWatch::Event::Gone : FileWatch::Event::Touched);
        }
    }
}

} // namespace

Ref<FileWatch> FileWatch::of(std::string const& path, Told told, int& problem) {
    problem = 0;
    {
        Handle const file{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
        struct stat status {};
        if (!file || ::fstat(file.number(), &status) != 0) return problem = errno, nullptr;
        if (!S_ISREG(status.st_mode)) return problem = EINVAL, nullptr;
        if (!tellsOfChanges(file.number())) return problem = ENOTSUP, nullptr;
    }
    auto* const events = Events::shared(problem);
    if (!events) return nullptr;
    auto const watched = std::make_shared<WatchedFile>(*events, std::move(told));
    problem = events->add(path, IN_ATTRIB, watched);
    return problem == 0 ? watched : nullptr;
}

Ref<FileWatch> FileWatch::ofMaking(std::string const& path, Told told, int& problem) {
    problem = 0;
    auto* const events = Events::shared(problem);
    if (!events) return nullptr;
    auto const slash = path.rfind('/');
    auto const watched = std::make_shared<WatchedFile>(*events, std::move(told), path.substr(slash + 1));
    problem = events->add(path.substr(0, slash + 1) + '.', IN_CREATE | IN_MOVED_TO | IN_ONLYDIR, watched);
    return problem == 0 ? watched : nullptr;
}

} // namespace Tessarin
