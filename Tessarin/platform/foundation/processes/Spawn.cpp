#include "Tessarin/platform/foundation/processes/SpawnPrivate.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessarin::processes {
namespace {

/// Out of the range that a child's standard descriptors take: an application may have closed its own.
int lift(Handle& file) noexcept {
    if (file.number() > STDERR_FILENO) return 0;
    Handle const low = std::exchange(file, Handle{});
    file = Handle{::fcntl(low.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1)};
    return file ? 0 : errno;
}

int executableFile(std::string const& path) {
    struct stat about {};
    if (::stat(path.c_str(), &about) != 0) return errno;
    if (!S_ISREG(about.st_mode)) return EACCES;
    return ::access(path.c_str(), X_OK) == 0 ? 0 : errno;
}

int folderProblem(std::string const& folder) {
    struct stat about {};
    if (folder.empty()) return 0;
    if (::stat(folder.c_str(), &about) != 0) return errno;
    if (!S_ISDIR(about.st_mode)) return ENOTDIR;
    return ::access(folder.c_str(), X_OK) == 0 ? 0 : errno;
}

std::vector<char*> pointers(std::vector<std::string> const& texts) {
    std::vector<char*> list;
    for (auto const& text : texts) list.push_back(const_cast<char*>(text.c_str()));
    list.push_back(nullptr);
    return list;
}

bool holdsZero(SpawnPlan const& plan) {
    auto const holds = [](std::string const& text) { return text.find('\0') != text.npos; };
    for (auto const& each : plan.arguments)
        if (holds(each)) return true;
    for (auto const& each : plan.environment)
        if (holds(each)) return true;
    return holds(plan.folder);
}

struct Actions {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    int problem;

    Actions() : problem(::posix_spawn_file_actions_init(&files)) {
        int const other = ::posix_spawnattr_init(&attributes);
        if (problem == 0) problem = other;
    }
    ~Actions() {
        ::posix_spawn_file_actions_destroy(&files);
        ::posix_spawnattr_destroy(&attributes);
    }
    void add(int result) {
        if (problem == 0) problem = result;
    }
    void describe(SpawnPlan const& plan) {
        sigset_t none, usual;
        ::sigemptyset(&none);
        ::sigfillset(&usual);
        for (int const kept : {SIGHUP, SIGKILL, SIGSTOP}) ::sigdelset(&usual, kept); // nohup means the children, too
        add(::posix_spawnattr_setsigmask(&attributes, &none));
        add(::posix_spawnattr_setsigdefault(&attributes, &usual));
        short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (plan.hasOwnGroup) {
            add(::posix_spawnattr_setpgroup(&attributes, 0));
            flags |= POSIX_SPAWN_SETPGROUP;
        }
#ifdef POSIX_SPAWN_CLOEXEC_DEFAULT // macOS: what no action names is closed
        flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
        add(::posix_spawnattr_setflags(&attributes, flags));
        for (int number = 0; number < 3; ++number) {
            int const from = plan.standard[number];
            if (from == SpawnPlan::nothing)
                add(::posix_spawn_file_actions_addopen(&files, number, "/dev/null", number == 0 ? O_RDONLY : O_WRONLY, 0));
            else if (from != SpawnPlan::inherited)
                add(::posix_spawn_file_actions_adddup2(&files, from, number));
        }
        if (!plan.folder.empty()) add(::posix_spawn_file_actions_addchdir_np(&files, plan.folder.c_str()));
#ifdef __linux__
        add(::posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1));
#endif
    }
};

} // namespace

void Handle::close() noexcept {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
}

int Pipe::open(Ours ours) noexcept {
    int ends[2];
#ifdef __linux__
    if (::pipe2(ends, O_CLOEXEC) != 0) return errno;
#else
    if (::pipe(ends) != 0) return errno;
    for (int const end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
#endif
    reading = Handle{ends[0]};
    writing = Handle{ends[1]};
    for (auto* const end : {&reading, &writing})
        if (int const problem = lift(*end)) return problem;
    int const own = (ours == Ours::Reading ? reading : writing).number();
    return ::fcntl(own, F_SETFL, O_NONBLOCK) == 0 ? 0 : errno; // a new pipe has no other flags
}

int openFile(Handle& file, std::string const& path) noexcept {
    if (path.find('\0') != path.npos) return EINVAL;
    file = Handle{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)}; // a pipe by name would wait for a writer
    struct stat about {};
    if (!file || ::fstat(file.number(), &about) != 0) return errno;
    if (S_ISDIR(about.st_mode)) return EISDIR;
    if (S_ISFIFO(about.st_mode)) return EINVAL;
    return ::fcntl(file.number(), F_SETFL, 0) == 0 ? lift(file) : errno;
}

bool isShortage(int code) noexcept { return code == EMFILE || code == ENFILE || code == EAGAIN; }

static std::atomic<bool> hasProcessDescriptors = true;
void pretendThereAreNoProcessDescriptors(bool pretend) noexcept { hasProcessDescriptors.store(!pretend); }

Handle openProcess(pid_t process) noexcept {
#ifdef SYS_pidfd_open
    if (hasProcessDescriptors.load()) return Handle{static_cast<int>(::syscall(SYS_pidfd_open, process, 0))};
#endif
    static_cast<void>(process);
    return {};
}

std::string currentFolder() {
    char* const here = ::getcwd(nullptr, 0);
    std::string const folder = here && ::access(here, X_OK) == 0 ? here : "";
    std::free(here);
    return folder;
}

std::string searchPath() {
    auto const* const listed = std::getenv("PATH");
    return listed ? listed : "/usr/local/bin:/usr/bin:/bin";
}

SpawnProblem findProgram(std::string const& name, std::string_view folders, std::string const& here, std::string& path) {
    if (name.find('\0') != name.npos) return {EINVAL, std::string{name.c_str()}};
    if (name.find('/') != name.npos) {
        path = name.starts_with('/') || here.empty() ? name : here + "/" + name;
        return {}; // whether it can be run is seen when it is
    }
    int problem = ENOENT;
    while (!name.empty() && !folders.empty()) {
        auto const folder = folders.substr(0, folders.find(':'));
        folders.remove_prefix(std::min(folders.size(), folder.size() + 1));
        if (!folder.starts_with('/')) continue; // whoever fills the current folder is not to choose what runs
        path = std::string{folder} + "/" + name;
        int const found = executableFile(path);
        if (found == 0) return {};
        if (found == EACCES) problem = EACCES;
    }
    return {problem, name};
}

SpawnProblem spawn(SpawnPlan const& plan, pid_t& child) {
    if (holdsZero(plan)) return {EINVAL, plan.path};
    Actions actions;
    if (actions.problem == 0) actions.describe(plan);
    if (actions.problem != 0) return {actions.problem, plan.path};
    auto const arguments = pointers(plan.arguments), environment = pointers(plan.environment);
    int const code =
        ::posix_spawn(&child, plan.path.c_str(), &actions.files, &actions.attributes, arguments.data(), environment.data());
    if (code == 0) return {};
    if (int const gone = folderProblem(plan.folder); gone == code) return {code, plan.folder};
    if (code == ENOENT && executableFile(plan.path) == 0) return {code, plan.path + ": its interpreter"};
    return {code, plan.path};
}

} // namespace Tessarin::processes
