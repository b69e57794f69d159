#include "benchmarks/defaults/Peers.h"

#ifdef TESSARIN_HAS_QTCORE
#include <QSettings>
#include <vector>

namespace Tessarin::benchmarks {
namespace {

class QtSettings : public Settings {
public:
    explicit QtSettings(std::string const& folder) : settings_(QString::fromStdString(folder + "/qt.ini"), QSettings::IniFormat) {
        for (int at = 0; at < keyCount; ++at) keys_.push_back(QString::fromStdString(keyName(at)));
    }
    std::int64_t get(int key) override { return settings_.value(keys_[static_cast<std::size_t>(key)]).toLongLong(); }
    void set(int key, std::int64_t value) override {
        settings_.setValue(keys_[static_cast<std::size_t>(key)], static_cast<qlonglong>(value));
    }
    void write() override { settings_.sync(); }

private:
    QSettings settings_;
    std::vector<QString> keys_;
};

} // namespace
std::unique_ptr<Settings> makeQtSettings(std::string const& folder) { return std::make_unique<QtSettings>(folder); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Settings> Tessarin::benchmarks::makeQtSettings(std::string const&) { return nullptr; }
#endif
