// How long programs take to start and end: an empty one in C++ (the limit), one that uses queues only, one that uses all of the
// library, and one that opens a store. Each is a process of its own, started the cheapest way; the time judged is that of the
// processor, which the kernel counts for the whole process: loading and binding libraries, their constructors, and the end.
#include "benchmarks/support/Report.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 201;

struct Program {
    char const* row;
    char const* file; // beside this one
    double target;    // times the empty one; 0: to be read only
    double libraries; // at most; 0: any
};
constexpr Program programs[] = {
    {"queues only", "start_queues", 2, 5},
    {"the whole library", "start_whole", 4, 0},
    {"SQLite by hand, opens a file", "start_sqlite", 0, 0},
    {"the whole library, opens a store", "start_store", 0, 0},
};

std::string besideThis(char const* file) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "start" / file;
}

int statusOf(std::string program, std::string argument, Cost& cost) {
    char* arguments[] = {program.data(), argument.data(), nullptr};
    int status = 0;
    rusage usage{};
    cost.wall = secondsOf([&] {
        pid_t child = 0;
        if (posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environ) != 0) std::abort();
        if (wait4(child, &status, 0, &usage) != child) std::abort();
    });
    auto const seconds = [](timeval const& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    cost.processor = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Cost startOf(std::string const& program, std::string const& folder) {
    Cost cost;
    if (statusOf(program, folder + "/store.db", cost) != 0) {
        std::fprintf(stderr, "%s failed\n", program.c_str());
        std::exit(1);
    }
    return cost;
}

/// Each program exits with this number when it is asked for it.
int librariesOf(std::string const& program) {
    Cost ignored;
    return statusOf(program, "--libraries", ignored);
}

void measure(Report& report, Program const& program, std::string const& folder) {
    auto const file = besideThis(program.file), empty = besideThis("start_empty"), own = folder + "/" + program.file;
    std::filesystem::create_directories(own);
    startOf(file, own); // makes what the others open, and fetches what is not in memory
    auto const costs = medianCosts(
        runs, [&] { return startOf(file, own); }, [&] { return startOf(empty, own); });
    report.add({.group = "start",
                .row = program.row,
                .unit = "ms",
                .ours = costs.ours.processor * 1000,
                .peer = "empty program",
                .theirs = costs.theirs.processor * 1000,
                .target = program.target,
                .others = {costs.ours.wall * 1000, costs.theirs.wall * 1000, costs.ours.wall / costs.theirs.wall}});
    if (program.libraries == 0) return;
    report.add({.group = "start",
                .row = std::string(program.row) + ", libraries",
                .unit = "",
                .ours = static_cast<double>(librariesOf(file)),
                .peer = "empty program",
                .theirs = static_cast<double>(librariesOf(empty)),
                .target = program.libraries,
                .bound = Bound::Ours});
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    auto folder = (std::filesystem::temp_directory_path() / "bench_start.XXXXXX").native();
    if (!mkdtemp(folder.data())) return 1;
    Report report(argc, argv, {"wall", "peer's", "ratio"});
    for (auto const& program : programs)
        if (report.wants("start", program.row)) measure(report, program, folder);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return report.finish();
}
