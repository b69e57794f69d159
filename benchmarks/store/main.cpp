// The object store beside hand-written SQLite and what others put over it: the same data, the same checksums, in one run.
//
//     bench_store [--json FILE] [--scale] [--pinned] [--normal] [--only ROW]... [--ours] [--runs COUNT] [part of a row's name]...
//
// Times are of the processor, of all threads together, and stand beside those that passed ("wall"). `--pinned` keeps the process
// on one core: what a second one hides is seen. `--normal` measures the rows that write with PRAGMA synchronous = NORMAL instead
// of FULL. `benchmarks/store/ways.py` runs all of these ways and prints one table.
// The targets are against `rawbest`, SQLite by hand with every trick that ours uses (see RawBest.h), on one core.
//
// `--ours --runs 50 --only W3` is for a profiler.
#include "benchmarks/store/Children.h"
#include "benchmarks/store/Run.h"

#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <sched.h>

namespace Tessarin::benchmarks {
namespace {

class TemporaryFolder {
public:
    TemporaryFolder() {
        if (!mkdtemp(path_.data())) throw std::runtime_error("no temporary folder");
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string const& path() const { return path_; }

private:
    std::string path_ = std::filesystem::temp_directory_path() / "bench_store.XXXXXX";
};

/// This process and those that it starts, from now on. The last core: the first serves most interrupts.
void keepOnOneCore() {
    cpu_set_t allowed, one;
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) throw std::runtime_error("no cores are known");
    CPU_ZERO(&one);
    for (int core = CPU_SETSIZE; core-- > 0;)
        if (CPU_ISSET(core, &allowed)) {
            CPU_SET(core, &one);
            break;
        }
    if (sched_setaffinity(0, sizeof one, &one) != 0) throw std::runtime_error("cannot stay on one core");
}

RunOptions parse(int argc, char** argv, std::vector<char*>& others) {
    RunOptions options;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc)
            options.only.emplace_back(argv[++i]);
        else if (std::strcmp(argv[i], "--scale") == 0)
            options.isScaled = true;
        else if (std::strcmp(argv[i], "--pinned") == 0)
            keepOnOneCore();
        else if (std::strcmp(argv[i], "--normal") == 0)
            options.synchronous = Synchronous::Normal;
        else if (std::strcmp(argv[i], "--ours") == 0)
            options.isOursAlone = true;
        else if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc)
            options.runs = std::stoi(argv[++i]);
        else
            others.push_back(argv[i]);
    }
    return options;
}

int measureAll(int argc, char** argv) {
    TemporaryFolder const folder;
    std::vector<char*> others;
    auto options = parse(argc, argv, others);
    options.folder = folder.path();
    Session::Contenders contenders;
    for (auto const& kind : contenderKinds)
        contenders.push_back(contenders.empty() || !options.isOursAlone ? kind.make() : nullptr);
    Report report(static_cast<int>(others.size()), others.data(), Run::columns());
    Run(options, contenders, report).measureAll();
    auto const status = report.finish();
    return Session::hasFailed() ? 1 : status;
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    try {
        return argc == 5 && std::strcmp(argv[1], "--child") == 0 ? runChild(argv[2], argv[3], argv[4]) : measureAll(argc, argv);
    } catch (std::exception const& failure) {
        fmt::print(stderr, "bench_store: {}\n", failure.what());
        return 1;
    }
}
