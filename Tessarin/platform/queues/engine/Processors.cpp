#include "Tessarin/platform/queues/engine/Processors.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <string>
#include <unistd.h>

namespace Tessarin::engine {
namespace {

std::string const mounted = "/sys/fs/cgroup";

/// Whole processors for a quota of time per period; no limit when either is missing, "max" or negative.
int processorsFor(std::string const& quota, std::string const& period) {
    auto const time = std::atof(quota.c_str());
    auto const each = std::atof(period.c_str());
    return time > 0 && each > 0 && time / each < INT_MAX - 1 ? static_cast<int>((time + each - 1) / each) : INT_MAX;
}

std::string firstLine(std::string const& path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

int limitOfUnified(std::string const& folder) {
    std::istringstream line(firstLine(folder + "/cpu.max")); // "150000 100000" or "max 100000"
    std::string quota, period;
    line >> quota >> period;
    return processorsFor(quota, period);
}
int limitOfOlder(std::string const& folder) {
    return processorsFor(firstLine(folder + "/cpu.cfs_quota_us"), firstLine(folder + "/cpu.cfs_period_us"));
}

/// The least of what a group and those around it allow.
template <class LimitOf> int leastLimit(std::string const& root, std::string group, LimitOf const& limitOf) {
    int least = limitOf(root);
    for (; group.size() > 1; group.erase(group.rfind('/'))) least = std::min(least, limitOf(root + group));
    return least;
}

int processorsByQuota() {
    int least = INT_MAX;
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) { // "0::/group", or "4:cpu,cpuacct:/group"
        auto const first = line.find(':');
        auto const second = line.find(':', first + 1);
        if (second == std::string::npos) continue;
        auto const controllers = "," + line.substr(first + 1, second - first - 1) + ",";
        auto const group = line.substr(second + 1);
        if (controllers == ",,") least = std::min(least, leastLimit(mounted, group, limitOfUnified));
        if (controllers.find(",cpu,") != std::string::npos)
            least = std::min(least, leastLimit(mounted + "/cpu", group, limitOfOlder));
    }
    return least;
}

} // namespace

int allowedProcessors() noexcept {
    cpu_set_t set;
    CPU_ZERO(&set);
    // A machine with more processors than the set has room for is refused; there it is as many as there are.
    bool const known = sched_getaffinity(0, sizeof set, &set) == 0;
    return std::max(1, known ? CPU_COUNT(&set) : static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
}

int usableProcessors() noexcept {
    static int const count = std::min(allowedProcessors(), processorsByQuota());
    return count;
}

} // namespace Tessarin::engine
