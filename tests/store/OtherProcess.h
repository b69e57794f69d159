#pragma once
#include "StoreFixture.h"
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessarin::tests {

/// This program once more, as a process that writes to the store in a folder what it is told: see OtherProcess.DISABLED_Writer.
class OtherProcess {
public:
    explicit OtherProcess(std::string const& folder) {
        if (::pipe2(to_, O_CLOEXEC) != 0 || ::pipe2(from_, O_CLOEXEC) != 0) std::abort();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, to_[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, from_[1], 3);
        for (int const output : {STDOUT_FILENO, STDERR_FILENO}) // what it says is not the test's
            posix_spawn_file_actions_addopen(&actions, output, "/dev/null", O_WRONLY, 0);
        std::string filter = "--gtest_filter=OtherProcess.DISABLED_Writer", all = "--gtest_also_run_disabled_tests",
                    name = "writer";
        char* arguments[] = {name.data(), filter.data(), all.data(), nullptr};
        auto const variable = "WRITES_TO=" + folder;
        std::vector<char*> environment;
        for (auto at = environ; *at; ++at) environment.push_back(*at);
        environment.insert(environment.end(), {const_cast<char*>(variable.c_str()), nullptr});
        if (::posix_spawn(&process_, "/proc/self/exe", &actions, nullptr, arguments, environment.data()) != 0) std::abort();
        posix_spawn_file_actions_destroy(&actions);
        ::close(to_[0]);
        ::close(from_[1]);
    }
    ~OtherProcess() {
        ::close(to_[1]);
        ::close(from_[0]);
        ::waitpid(process_, nullptr, 0);
    }
    OtherProcess(OtherProcess const&) = delete;
    OtherProcess& operator=(OtherProcess const&) = delete;

    /// Until it has saved that, or has died.
    void does(std::string const& edit) const {
        auto const line = edit + "\n";
        if (::write(to_[1], line.data(), line.size()) < 0) std::abort();
        char done = 0;
        static_cast<void>(!::read(from_[0], &done, 1));
    }

private:
    pid_t process_ = 0;
    int to_[2] = {}, from_[2] = {};
};

} // namespace Tessarin::tests
