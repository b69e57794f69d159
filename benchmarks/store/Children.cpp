// W11, W12 and W16 are measured in a process that has done nothing else before.
#include "benchmarks/store/Children.h"

#include "benchmarks/store/OurRows.h"
#include "benchmarks/store/Timing.h"

#include <cstdio>
#include <fmt/format.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace Tessarin::benchmarks {
namespace {

/// Runs this program again with `arguments`; what it prints.
std::string outputOfChild(std::vector<std::string> arguments) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    arguments.insert(arguments.begin(), "bench_store");
    std::vector<char*> pointers;
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    pid_t child = 0;
    auto const failed = posix_spawn(&child, "/proc/self/exe", &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output;
    char buffer[256];
    for (ssize_t count; !failed && (count = read(ends[0], buffer, sizeof buffer)) > 0;)
        output.append(buffer, static_cast<std::size_t>(count));
    close(ends[0]);
    int status = 0;
    if (failed || waitpid(child, &status, 0) != child || status != 0) throw std::runtime_error("the measuring process failed");
    return output;
}

Reading measure(ChildTask task, Contender& contender, std::string const& file) {
    switch (task) {
    case ChildTask::OpenAndFind: return contender.openAndFind(Library::generate(1).books[0].code, file);
    case ChildTask::Resident: return contender.residentBooks(file);
    case ChildTask::BatchedFetch: return memoryOfBatchedFetch(file);
    case ChildTask::SaveForOthers: return saveForOthers(file);
    }
    throw std::runtime_error("no such task");
}

} // namespace

Reading measureInChild(ChildTask task, Contender const& contender, std::string const& file) {
    auto const output = outputOfChild({"--child", std::to_string(static_cast<int>(task)), contender.name(), file});
    Reading reading;
    unsigned long long checksum = 0;
    if (std::sscanf(output.c_str(), "%lf %llu %lf", &reading.value, &checksum, &reading.wall) != 3)
        throw std::runtime_error("no figures in " + output);
    reading.checksum = checksum;
    return reading;
}

int runChild(std::string const& task, std::string const& contender, std::string const& file) {
    for (auto const& kind : contenderKinds) {
        if (kind.name != contender) continue;
        auto const side = kind.make();
        auto const reading = measure(static_cast<ChildTask>(std::stoi(task)), *side, file);
        fmt::print("{} {} {}\n", reading.value, reading.checksum, reading.wall);
        return 0;
    }
    throw std::runtime_error("no contender " + contender);
}

double residentMiB() {
    std::ifstream statm("/proc/self/statm");
    std::size_t total = 0, resident = 0;
    statm >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

} // namespace Tessarin::benchmarks
