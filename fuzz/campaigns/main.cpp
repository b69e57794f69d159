// Campaigns: trial after trial, looking for one in which the store does not keep a promise.
//
//     campaigns list [--state FILE]
//     campaigns NAME [--trials N] [--minutes M] [--first K] [--state FILE] [--trace]
//
// Without --first it goes on where the state file says that the last run stopped, else at 0.
#include "Tessarin/platform/queues/DispatchMain.h"
#include "fuzz/campaigns/Campaign.h"
#include "fuzz/campaigns/FaultyFiles.h"
#include "fuzz/campaigns/Trace.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

namespace Tessarin::campaigns {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string name, state;
    std::uint64_t trials = UINT64_MAX, first = UINT64_MAX;
    double minutes = 0; // 0: no limit
};

/// How many trials of each campaign are done, in a text file.
class State {
public:
    explicit State(std::string file) : file_(std::move(file)) {
        std::ifstream input(file_);
        std::string name;
        for (std::uint64_t count = 0; input >> name >> count;) counts_[name] = count;
    }
    std::uint64_t& of(std::string const& name) { return counts_[name]; }
    void save() const {
        if (file_.empty()) return;
        if (auto const folder = std::filesystem::path(file_).parent_path(); !folder.empty())
            std::filesystem::create_directories(folder);
        std::ofstream output(file_ + ".new");
        for (auto const& [name, count] : counts_) output << name << ' ' << count << '\n';
        output.close();
        std::filesystem::rename(file_ + ".new", file_);
    }

private:
    std::string file_; // empty: remembered by nobody
    std::map<std::string, std::uint64_t> counts_;
};

int list(State& state) {
    for (auto const& campaign : allCampaigns())
        fmt::print("{:<10} {:>8} done  {}\n", campaign.name, state.of(campaign.name), campaign.what);
    return 0;
}

int run(Campaign const& campaign, Options const& options, State& state) {
    auto const first = options.first != UINT64_MAX ? options.first : state.of(campaign.name);
    auto const started = Clock::now();
    auto const elapsed = [&] { return std::chrono::duration<double>(Clock::now() - started).count(); };
    Tally tally;
    std::uint64_t done = 0;
    auto saved = started;
    for (; done < options.trials && (options.minutes == 0 || elapsed() < options.minutes * 60); ++done) {
        auto const number = first + done;
        try {
            Trial trial(campaign.name, number);
            campaign.trial(trial, tally);
        } catch (std::exception const& failure) {
            fmt::print(stderr, "{}: trial {}: {}\nrepeat it with: campaigns {} --first {} --trials 1\n", campaign.name, number,
                       failure.what(), campaign.name, number);
            return 1;
        }
        state.of(campaign.name) = std::max(state.of(campaign.name), number + 1);
        if (Clock::now() - saved > std::chrono::seconds(10)) {
            saved = Clock::now();
            state.save();
        }
    }
    state.save();
    fmt::print("{}: {} trials from {} in {:.1f} s: {}\n", campaign.name, done, first, elapsed(), tally.text());
    if (!campaign.judge || done < campaign.enough) return 0;
    try {
        campaign.judge(tally);
        return 0;
    } catch (Broken const& failure) {
        fmt::print(stderr, "{}: {}\n", campaign.name, failure.what());
        return 1;
    }
}

int usage() {
    fmt::print(stderr, "usage: campaigns list | NAME [--trials N] [--minutes M] [--first K] [--state FILE] [--trace]\n");
    return 2;
}

int runArguments(int argc, char** argv) {
    if (argc > 2 && std::strcmp(argv[1], "--child") == 0) {
        for (auto const& role : allRoles())
            if (std::strcmp(role.name, argv[2]) == 0) return role.run(std::span(argv, static_cast<std::size_t>(argc)).subspan(3));
        return usage();
    }
    Options options;
    for (int at = 1; at < argc; ++at) {
        std::string_view const argument = argv[at];
        if (!argument.starts_with("--")) {
            options.name = argument;
        } else if (argument == "--trace") {
            traceFromNowOn();
        } else if (++at == argc) {
            return usage();
        } else if (argument == "--trials") {
            options.trials = std::stoull(argv[at]);
        } else if (argument == "--minutes") {
            options.minutes = std::stod(argv[at]);
        } else if (argument == "--first") {
            options.first = std::stoull(argv[at]);
        } else if (argument == "--state") {
            options.state = argv[at];
        } else {
            return usage();
        }
    }
    State state(options.state);
    if (options.name == "list") return list(state);
    for (auto const& campaign : allCampaigns())
        if (options.name == campaign.name) return run(campaign, options, state);
    return usage();
}

} // namespace
} // namespace Tessarin::campaigns

/// Trials run beside a main queue that somebody drains, as in an application.
int main(int argc, char** argv) {
    Tessarin::campaigns::FaultyFiles::install();
    int result = 1;
    std::atomic<bool> isDone{false};
    std::thread runner([&] {
        result = Tessarin::campaigns::runArguments(argc, argv);
        isDone = true;
        Tessarin::stopMainLoop();
    });
    do Tessarin::runMainLoop();
    while (!isDone);
    runner.join();
    return result;
}
