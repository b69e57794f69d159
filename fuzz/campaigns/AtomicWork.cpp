// A file is replaced; whoever looks finds the old content or the new.
#include "fuzz/campaigns/PlainWork.h"

#include "fuzz/campaigns/Campaign.h"

#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include <filesystem>
#include <fstream>

namespace Tessarin::campaigns {
namespace {

std::string contentOf(std::int64_t number) {
    return std::string(static_cast<std::size_t>(number + 1) * 1500, static_cast<char>('0' + number));
}

class AtomicWork : public PlainWork {
    using PlainWork::PlainWork;

    void prepare() override { std::ofstream(folder_ + "/note") << contentOf(0); }
    void step(std::int64_t number) override { NSData::dataWithText(contentOf(number)).writeToFile(folder_ + "/note"); }
    std::optional<std::int64_t> stepIn(std::string const& folder) override {
        require(std::filesystem::exists(folder + "/note"), "the file is missing");
        auto const text = NSData::contentsOfFile(folder + "/note");
        for (std::int64_t number = 0; number <= steps(); ++number)
            if (text.text() == contentOf(number)) return number;
        throw Broken(fmt::format("the file holds {} bytes that nobody wrote so", text.length()));
    }
    bool isDurable() const override { return false; } // its content is synced, its name is not
};

} // namespace

std::unique_ptr<PlainWork> makeAtomicWork(std::string folder) { return std::make_unique<AtomicWork>(std::move(folder)); }

} // namespace Tessarin::campaigns
