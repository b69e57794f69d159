// The object store beside hand-written SQLite and what others put over it: the same data, the same checksums, in one run.
//
//     bench_store [--json FILE] [--scale] [--only ROW]... [--ours] [--runs COUNT] [part of a row's name]...
//
// `--ours --runs 50 --only W3` is for a profiler.
#include "benchmarks/store/Children.h"
#include "benchmarks/store/Run.h"

#include <cstring>
#include <filesystem>
#include <fmt/format.h>

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

RunOptions parse(int argc, char** argv, std::vector<char*>& others) {
    RunOptions options;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc)
            options.only.emplace_back(argv[++i]);
        else if (std::strcmp(argv[i], "--scale") == 0)
            options.isScaled = true;
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
    std::vector<std::string> peers;
    for (auto const& kind : std::span(contenderKinds).subspan(firstPeer)) peers.emplace_back(kind.name);
    Report report(static_cast<int>(others.size()), others.data(), peers);
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
