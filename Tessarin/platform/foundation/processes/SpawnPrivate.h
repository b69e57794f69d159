#pragma once
#include "Tessarin/Export.h"
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Tessarin::processes {

/// An open descriptor, closed at the end; -1 when there is none.
class TESSARIN_API Handle {
public:
    Handle() = default;
    explicit Handle(int number) noexcept : number_(number) {}
    Handle(Handle&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Handle() { close(); }
    int number() const noexcept { return number_; }
    explicit operator bool() const noexcept { return number_ >= 0; }
    void close() noexcept;

private:
    int number_ = -1;
};

/// Two ends that no other child inherits, neither of them a standard descriptor; what the application keeps does not block.
struct Pipe {
    enum class Ours { Reading, Writing };
    Handle reading, writing;
    /// 0 or an errno.
    int open(Ours ours) noexcept;
};

/// Opens for reading, neither inherited nor a standard descriptor. 0 or an errno.
int openFile(Handle& file, std::string const& path) noexcept;

struct SpawnPlan {
    static constexpr int nothing = -1, inherited = -2;
    std::string path;
    std::vector<std::string> arguments; // with the program's name
    std::vector<std::string> environment;
    std::string folder;
    int standard[3] = {nothing, nothing, nothing}; // or a descriptor above 2
    bool hasOwnGroup = true;                       // false: the application's process group
};

/// What went wrong with what.
struct SpawnProblem {
    int code = 0; // an errno; 0: nothing
    std::string about = {};
};

/// The application's folder, "" when it has none that it could go back to; its PATH, or the usual one.
std::string currentFolder();
std::string searchPath();
/// The path of a program: of the first absolute folder of PATH that has it; when its name holds "/", that name, which is looked
/// up from `here`. `path` is its result.
SpawnProblem findProgram(std::string const& name, std::string_view folders, std::string const& here, std::string& path);
/// Starts it as the leader of a process group, if it is to have its own, with the standard descriptors alone, no signal
/// blocked, and none but SIGHUP ignored.
SpawnProblem spawn(SpawnPlan const& plan, pid_t& child);

/// A descriptor that is readable once the process has ended, where the system has such; none otherwise.
Handle openProcess(pid_t process) noexcept;
/// For tests: what a system without them does.
TESSARIN_API void pretendThereAreNoProcessDescriptors(bool pretend) noexcept;

/// Whether it may pass when another child has ended.
bool isShortage(int code) noexcept;

} // namespace Tessarin::processes
