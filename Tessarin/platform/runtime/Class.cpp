#include "Tessarin/platform/runtime/Class.h"

#include "Tessarin/platform/runtime/NSObject.h"

#include <cstdlib>
#include <cxxabi.h>
#include <functional>
#include <map>
#include <mutex>
#include <typeindex>

namespace Tessarin {
namespace {

struct Classes {
    std::mutex mutex;
    std::map<std::type_index, Class*> byType;                    // guarded by mutex
    std::map<std::string, Class const*, std::less<>> byName;     // guarded by mutex; only registered ones
};

Classes& classes() {
    static auto* const shared = new Classes;
    return *shared;
}

std::string nameOf(std::type_info const& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> const text{abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free};
    std::string name = text ? text.get() : type.name();
    for (auto at = name.find("::"); at != name.npos; at = name.find("::", at)) name.replace(at, 2, ".");
    return name;
}

} // namespace

Class& Class::made(std::type_info const& type, SelectorTable selectors) {
    auto& all = classes();
    std::lock_guard const hold(all.mutex);
    auto& entry = all.byType[type];
    if (!entry) {
        entry = new Class;
        entry->name_ = nameOf(type);
        entry->selectors_ = std::move(selectors);
    }
    return *entry;
}

void Class::publish(Class const* superclass, Factory factory, std::uint32_t ownHooks) {
    auto& all = classes();
    std::lock_guard const hold(all.mutex);
    superclass_.store(superclass, std::memory_order_release);
    factory_.store(factory, std::memory_order_release);
    ownHooks_.store(ownHooks, std::memory_order_release);
    all.byName[name_] = this;
}

bool Class::isSubclassOf(Class const& other) const noexcept {
    for (auto const* at = this; at; at = at->superclass())
        if (at == &other) return true;
    return false;
}

SelectorTable::Entry const* Class::find(Selector selector) const noexcept {
    for (auto const* at = this; at; at = at->superclass())
        if (auto const* entry = at->selectors_.find(selector)) return entry;
    return nullptr;
}

SelectorTable::Entry const* Class::findOfClass(Selector selector) const noexcept {
    for (auto const* at = this; at; at = at->superclass())
        if (auto const* entry = at->selectors_.find(selector, true)) return entry;
    return nullptr;
}

Value Class::invoke(Selector selector, std::initializer_list<Value> arguments) const {
    auto const* entry = findOfClass(selector);
    if (!entry) fatal("class " + name_ + " does not answer " + selector.name());
    return (*entry)(nullptr, {arguments.begin(), arguments.size()});
}

Class const* classNamed(std::string_view name) {
    auto& all = classes();
    std::lock_guard const hold(all.mutex);
    auto const found = all.byName.find(name);
    return found == all.byName.end() ? nullptr : found->second;
}

SelectorTable::Entry const* SelectorTable::find(Selector selector, bool ofClass) const noexcept {
    for (auto const& entry : entries_)
        if (entry.selector() == selector && entry.isOfClass() == ofClass) return &entry;
    return nullptr;
}

Value SelectorTable::Entry::operator()(NSObject* object, std::span<Value const> arguments) const {
    if (arguments.size() != count_) fatal("selector " + selector_.name() + " was sent with a wrong number of arguments");
    return call_(object, called_, arguments, selector_);
}

} // namespace Tessarin
