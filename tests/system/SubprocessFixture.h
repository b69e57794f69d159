#pragma once
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/system/Subprocess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"
#include <cerrno>
#include <csignal>
#include <future>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessarin::tests {

inline SubprocessOptions shell(std::string script) { return {.program = "/bin/sh", .arguments = {"-c", std::move(script)}}; }
inline SubprocessResult ran(std::string script) { return Subprocess::run(shell(std::move(script))); }

/// One that was started; its result is waited for.
class Started {
public:
    explicit Started(SubprocessOptions options) {
        subprocess =
            Subprocess::start(std::move(options), [this](SubprocessResult const& result) { promise_.set_value(result); });
    }
    ~Started() { result(); }
    SubprocessResult const& result() {
        if (!result_) result_ = ended_.get();
        return *result_;
    }
    Ref<Subprocess> subprocess;

private:
    std::promise<SubprocessResult> promise_;
    std::future<SubprocessResult> ended_ = promise_.get_future();
    std::optional<SubprocessResult> result_;
};

inline bool isGone(int process) { return ::kill(process, 0) != 0 && errno == ESRCH; }
/// Gone, or only not reaped yet by whoever adopts orphans.
inline bool hasDied(int process) {
    if (isGone(process)) return true;
    std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
    std::string text(std::istreambuf_iterator<char>(stat), {});
    auto const at = text.rfind(')');
    return text.empty() || (at != text.npos && text.compare(at + 2, 1, "Z") == 0);
}
inline bool hasChildren() {
    siginfo_t about{};
    return ::waitid(P_ALL, 0, &about, WEXITED | WNOHANG | WNOWAIT) == 0;
}

} // namespace Tessarin::tests
