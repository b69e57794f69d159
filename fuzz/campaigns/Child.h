#pragma once
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Tessarin::campaigns {

/// This program as another process, in a role; what it writes to standard output comes line by line.
class Child {
public:
    Child(std::string const& role, std::vector<std::string> arguments);
    ~Child(); // kills what still runs
    Child(Child const&) = delete;
    Child& operator=(Child const&) = delete;

    /// The next whole line; none at the end of the output.
    std::optional<std::string> line();
    void kill() const;
    /// Waits for its end. 0 when it ended well; the exit status, or minus the signal.
    int wait();

private:
    pid_t process_ = 0;
    int output_ = -1;
    std::string unread_;
};

/// In a child: one line, at once.
void report(std::string const& line);

} // namespace Tessarin::campaigns
