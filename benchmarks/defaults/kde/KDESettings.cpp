#include "benchmarks/defaults/Peers.h"

#ifdef TESSARIN_HAS_KCONFIG
#include <KConfig>
#include <KConfigGroup>
#include <vector>

namespace Tessarin::benchmarks {
namespace {

class KDESettings : public Settings {
public:
    explicit KDESettings(std::string const& folder)
        : config_(QString::fromStdString(folder + "/kde.ini"), KConfig::SimpleConfig), group_(&config_, "General") {
        for (int at = 0; at < keyCount; ++at) keys_.push_back(QString::fromStdString(keyName(at)));
    }
    std::int64_t get(int key) override { return group_.readEntry(keys_[static_cast<std::size_t>(key)], qlonglong{0}); }
    void set(int key, std::int64_t value) override {
        group_.writeEntry(keys_[static_cast<std::size_t>(key)], static_cast<qlonglong>(value));
    }
    void write() override { config_.sync(); }

private:
    KConfig config_;
    KConfigGroup group_;
    std::vector<QString> keys_;
};

} // namespace
[[gnu::visibility("default")]] std::unique_ptr<Settings> makeKDESettings(std::string const& folder) {
    return std::make_unique<KDESettings>(folder);
}
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Settings> Tessarin::benchmarks::makeKDESettings(std::string const&) { return nullptr; }
#endif
