#include "Tessarin/platform/foundation/preferences/DefaultsWatchPrivate.h"

#include "Tessarin/platform/foundation/preferences/DefaultsSuitePrivate.h"

#include <csignal>
#include <map>
#include <mutex>
#include <string_view>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

namespace Tessarin::defaults {
namespace {

class Watch {
public:
    static Watch& shared() {
        static auto& watch = *new Watch; // its thread runs until the process ends
        return watch;
    }

    void add(std::string const& folder, std::string const& name, WeakRef<DefaultsSuite> suite) {
        if (inotify_ < 0) return;
        std::lock_guard const hold(mutex_);
        int const number =
            ::inotify_add_watch(inotify_, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR);
        if (number < 0) return;
        std::erase_if(watched_, [](auto const& entry) { return entry.second.expired(); });
        watched_.insert_or_assign({number, name}, std::move(suite)); // a folder that is watched already keeps its number
    }

private:
    Watch() : inotify_(::inotify_init1(IN_CLOEXEC)) {
        if (inotify_ < 0) return;
        sigset_t all, before;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before); // signals are for the application's threads
        std::thread([this] { run(); }).detach();
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }

    void run() {
        alignas(inotify_event) char buffer[16 * 1024];
        for (;;) {
            auto const size = ::read(inotify_, buffer, sizeof buffer);
            if (size <= 0) return;
            for (char const* at = buffer; at < buffer + size;) {
                auto const* const event = reinterpret_cast<inotify_event const*>(at);
                report(*event, event->len ? std::string_view{event->name} : std::string_view{});
                at += sizeof(inotify_event) + event->len;
            }
        }
    }

    void report(inotify_event const& event, std::string_view name) {
        std::vector<WeakRef<DefaultsSuite>> suites;
        {
            std::lock_guard const hold(mutex_);
            for (auto const& [place, suite] : watched_)
                if ((event.mask & IN_Q_OVERFLOW) || (place.first == event.wd && place.second == name)) suites.push_back(suite);
        }
        for (auto const& suite : suites)
            if (auto const kept = suite.lock()) kept->fileMayHaveChanged();
    }

    int const inotify_;
    std::mutex mutex_;
    std::map<std::pair<int, std::string>, WeakRef<DefaultsSuite>> watched_; // by folder and file name; guarded by mutex_
};

} // namespace

void DefaultsWatch::begin(std::string const& folder, std::string const& name, WeakRef<DefaultsSuite> suite) {
    Watch::shared().add(folder, name, std::move(suite));
}

} // namespace Tessarin::defaults
