#pragma once
#include <limits>

namespace Tessarin {

template <DefaultsValue T> auto NSUserDefaultsKeys::operator[](DefaultsKey<T> const& key) -> KeySlot<T> {
    return {static_cast<NSUserDefaults&>(*this), key};
}

template <DefaultsValue T> DefaultsReading<T> NSUserDefaultsKeys::slot(DefaultsKey<T> const& key) const {
    auto const& home = static_cast<NSUserDefaults const&>(*this);
    if constexpr (std::is_same_v<T, bool>)
        return home.boolForKey(key.key);
    else if constexpr (DefaultsInteger<T>) { // saturated, as every reading of a number is
        using Limits = std::numeric_limits<typename detail::NumberOf<T>::type>;
        auto const stored = home.integerForKey(key.key);
        return static_cast<T>(stored < Limits::min() ? Limits::min() : stored > Limits::max() ? Limits::max() : stored);
    } else if constexpr (std::is_same_v<T, float>)
        return home.floatForKey(key.key);
    else if constexpr (std::is_same_v<T, double>)
        return home.doubleForKey(key.key);
    else if constexpr (std::is_same_v<T, std::string>)
        return home.stringForKey(key.key).value_or(std::string{});
    else if constexpr (std::is_same_v<T, std::vector<std::string>>)
        return home.stringArrayForKey(key.key).value_or(T{});
    else
        return home.objectForKey(key.key).template as<T>();
}

template <DefaultsValue T> void NSUserDefaultsKeys::setSlot(DefaultsKey<T> const& key, DefaultsReading<T> const& value) {
    auto& home = static_cast<NSUserDefaults&>(*this);
    if constexpr (std::is_same_v<T, bool>)
        home.setBool(value, key.key);
    else if constexpr (DefaultsInteger<T>)
        home.setInteger(static_cast<std::int64_t>(value), key.key);
    else if constexpr (std::is_same_v<T, float>)
        home.setFloat(value, key.key);
    else if constexpr (std::is_same_v<T, double>)
        home.setDouble(value, key.key);
    else if constexpr (std::is_same_v<T, std::vector<std::string>>)
        home.setObject(Value(List(value.begin(), value.end())), key.key);
    else
        home.setObject(value, key.key);
}

template <DefaultsValue T> DefaultsReading<T> NSUserDefaultsKeys::get(DefaultsKey<T> const& key) { return defaults()->slot(key); }

template <DefaultsValue T>
void NSUserDefaultsKeys::set(std::type_identity_t<std::optional<T>> value, DefaultsKey<T> const& forKey) {
    // The group is looked up for each step: when it is switched between them, the new one is written.
    if (value)
        defaults()->setSlot(forKey, *std::move(value));
    else
        defaults()->removeValueForKey(forKey.key);
    defaults()->synchronize();
}

} // namespace Tessarin
