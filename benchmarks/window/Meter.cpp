#include "benchmarks/window/Meter.h"

#include <algorithm>
#include <ctime>
#include <numeric>

namespace Tessarin::benchmarks {

double mainMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

bool MeteredApplication::notify(QObject* receiver, QEvent* event) {
    if (isInside_) return QApplication::notify(receiver, event);
    isInside_ = true;
    auto const start = mainMilliseconds();
    bool const isTaken = QApplication::notify(receiver, event);
    events_.push_back(mainMilliseconds() - start);
    isInside_ = false;
    return isTaken;
}

MeteredApplication::Cost MeteredApplication::take() {
    auto events = std::exchange(events_, {});
    if (events.empty()) return {};
    std::ranges::sort(events);
    auto const rank = static_cast<std::size_t>(static_cast<double>(events.size()) * 0.999);
    return {std::accumulate(events.begin(), events.end(), 0.0), events[std::min(rank, events.size() - 1)]};
}

} // namespace Tessarin::benchmarks
