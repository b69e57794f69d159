#include "fuzz/campaigns/Child.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <cstdlib>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessarin::campaigns {

Child::Child(std::string const& role, std::vector<std::string> arguments) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    arguments.insert(arguments.begin(), {"campaigns", "--child", role});
    std::vector<char*> pointers;
    for (auto& each : arguments) pointers.push_back(each.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    auto const failure = ::posix_spawn(&process_, "/proc/self/exe", &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    output_ = ends[0];
    if (failure != 0) throw std::runtime_error("no process");
}

Child::~Child() {
    if (process_ > 0) {
        kill();
        wait();
    }
    ::close(output_);
}

std::optional<std::string> Child::line() {
    for (;;) {
        if (auto const end = unread_.find('\n'); end != std::string::npos) {
            auto line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        char buffer[4096];
        auto const count = ::read(output_, buffer, sizeof buffer);
        if (count <= 0) return {}; // what is left is half a line
        unread_.append(buffer, static_cast<std::size_t>(count));
    }
}

void Child::kill() const { ::kill(process_, SIGKILL); }

int Child::wait() {
    int status = 0;
    ::waitpid(process_, &status, 0);
    process_ = 0;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

void report(std::string const& line) {
    auto const text = line + '\n';
    if (::write(STDOUT_FILENO, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
}

} // namespace Tessarin::campaigns
