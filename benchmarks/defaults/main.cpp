// Preferences with fifty keys beside those of other libraries. The raw limit of writing is a temporary file of the same bytes,
// fsync, rename; the one behind it also syncs the folder, as ours does so that no loss of power brings the old file back.
#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"
#include "benchmarks/defaults/Peers.h"
#include "benchmarks/support/Threads.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace Tessarin::benchmarks {
namespace {

class OurSettings : public Settings {
public:
    explicit OurSettings(std::string const&) : defaults_(NSUserDefaults::initWithSuiteName("ours")) {
        for (int at = 0; at < keyCount; ++at) keys_.emplace_back(keyName(at));
    }
    std::int64_t get(int key) override { return (*defaults_)[keys_[static_cast<std::size_t>(key)]]; }
    void set(int key, std::int64_t value) override { (*defaults_)[keys_[static_cast<std::size_t>(key)]] = value; }
    void write() override {
        if (!defaults_->synchronize()) std::abort();
    }

private:
    Ref<NSUserDefaults> const defaults_;
    std::vector<DefaultsKey<std::int64_t>> keys_;
};
std::unique_ptr<Settings> makeOurSettings(std::string const& folder) { return std::make_unique<OurSettings>(folder); }

/// The bytes of a file of ours, written with the system's own calls.
class RawFile : public Settings {
public:
    RawFile(std::string const& folder, bool syncsFolder) : folder_(folder), syncsFolder_(syncsFolder) {
        for (int at = 0; at < keyCount; ++at) text_ += "\"" + keyName(at) + "\" = 100000\n";
    }
    std::int64_t get(int) override { return 0; }
    void set(int, std::int64_t) override {}
    void write() override {
        auto const half = folder_ + "/raw.new", whole = folder_ + "/raw";
        int const file = ::open(half.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (::write(file, text_.data(), text_.size()) != std::ssize(text_) || ::fsync(file) != 0) std::abort();
        ::close(file);
        if (::rename(half.c_str(), whole.c_str()) != 0) std::abort();
        if (!syncsFolder_) return;
        int const folder = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (::fsync(folder) != 0) std::abort();
        ::close(folder);
    }

private:
    std::string const folder_;
    bool const syncsFolder_;
    std::string text_;
};

struct Peer {
    SettingsMaker make;
    bool isRaw = false;
};
Peer const peers[] = {
    {makeOurSettings},
    {makeQtSettings},
    {makeKDESettings},
    {[](std::string const& folder) -> std::unique_ptr<Settings> { return std::make_unique<RawFile>(folder, false); }, true},
    {[](std::string const& folder) -> std::unique_ptr<Settings> { return std::make_unique<RawFile>(folder, true); }, true}};

/// Every library in turn, so that all meet the same machine; the medians.
template <class Measure>
void addRow(Report& report, std::string const& folder, Row row, int runs, bool withRaw, Measure const& measure) {
    if (!report.wants("defaults", row.row)) return;
    std::vector<std::unique_ptr<Settings>> all;
    std::vector<std::vector<double>> values(std::size(peers));
    for (auto const& peer : peers) {
        all.push_back(peer.isRaw && !withRaw ? nullptr : peer.make(folder));
        for (int key = 0; all.back() && key < keyCount; ++key) all.back()->set(key, key);
        if (all.back()) all.back()->write();
    }
    for (int run = 0; run < runs; ++run)
        for (std::size_t at = 0; at < all.size(); ++at)
            if (all[at]) values[at].push_back(measure(*all[at]));
    auto const middle = [&](std::size_t at) -> std::optional<double> {
        std::ranges::sort(values[at]);
        return values[at].empty() ? std::nullopt : std::optional(values[at][values[at].size() / 2]);
    };
    row.group = "defaults";
    row.ours = *middle(0);
    row.peer = "QSettings";
    row.theirs = middle(1).value_or(0);
    row.others = {middle(2), middle(3), middle(4)};
    report.add(row);
}

int run(int argc, char** argv) {
    auto folder = (std::filesystem::temp_directory_path() / "tessarin-bench-XXXXXX").native();
    if (!::mkdtemp(folder.data())) return 1;
    for (auto const* variable : {"XDG_CONFIG_HOME", "HOME"}) ::setenv(variable, folder.c_str(), 1);
    Report report(argc, argv, {"KConfig", "raw file", "and folder"});
    std::int64_t sum = 0;
    int key = 0;
    // 40 ns each where QSettings takes 135 and 106.
    addRow(report, folder, {.row = "get", .unit = "ns", .target = 0.3}, 15, false,
           [&](Settings& settings) { return nanoseconds(20'000, [&] { sum += settings.get(key = (key + 1) % keyCount); }); });
    addRow(report, folder, {.row = "set", .unit = "ns", .target = 0.38}, 15, false,
           [&](Settings& settings) { return nanoseconds(20'000, [&] { settings.set(key = (key + 1) % keyCount, ++sum); }); });
    addRow(report, folder, {.row = "set one and write, synced", .unit = "us", .target = 0.93}, 101, true,
           [&](Settings& settings) {
               return nanoseconds(1,
                                  [&] {
                                      settings.set(key, ++sum);
                                      settings.write();
                                  }) /
                      1e3;
           });
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return report.finish();
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) { return Tessarin::benchmarks::run(argc, argv); }
