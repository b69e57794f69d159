#include "Tessarin/system/KeyboardModifiers.h"
#include "Tessarin/platform/runtime/Cell.h"

#include <ostream>
#include <string_view>
#include <utility>

namespace Tessarin {
namespace {

Cell<KeyboardModifiers::Source>& registered() {
    static Cell<KeyboardModifiers::Source> source{nullptr};
    return source;
}

constexpr std::pair<KeyboardModifiers, std::string_view> names[] = {{KeyboardModifiers::shift, "shift"},
                                                                    {KeyboardModifiers::control, "control"},
                                                                    {KeyboardModifiers::option, "option"},
                                                                    {KeyboardModifiers::command, "command"},
                                                                    {KeyboardModifiers::capsLock, "capsLock"}};

} // namespace

std::optional<KeyboardModifiers> KeyboardModifiers::current() {
    auto const source = registered().get();
    return source ? source() : std::nullopt;
}

KeyboardModifiers::Source KeyboardModifiers::setSource(Source source) noexcept { return registered().exchange(source); }

std::string KeyboardModifiers::description() const {
    std::string text;
    for (auto const& [key, name] : names)
        if (contains(key)) text += (text.empty() ? "" : ", ") + std::string(name);
    return '[' + text + ']';
}

std::ostream& operator<<(std::ostream& out, KeyboardModifiers keys) { return out << keys.description(); }

} // namespace Tessarin
