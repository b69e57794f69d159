#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/Selector.h"
#include "Tessarin/platform/runtime/Value.h"
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

namespace Tessarin {

class NSObject;

/// What a class answers: selectors, each with a pointer to a member function, or to a static one for messages to the class
/// itself. The arguments are taken from values; an argument of a wrong kind or class is fatal, and so is a wrong count. An
/// absent value is a null reference or an absent optional.
class TESSARIN_API SelectorTable {
public:
    class TESSARIN_API Entry {
    public:
        template <class T, class Result, class... Parameters>
        Entry(Selector selector, Result (T::*member)(Parameters...)) : Entry(selector, sizeof...(Parameters)) {
            keep(member, [](NSObject* object, Called called, std::span<Value const> arguments, Selector name) {
                auto const target = called.as<Result (T::*)(Parameters...)>();
                return call<T, Result, Parameters...>(object, target, arguments, name, std::index_sequence_for<Parameters...>{});
            });
        }
        template <class T, class Result, class... Parameters>
        Entry(Selector selector, Result (T::*member)(Parameters...) const) : Entry(selector, sizeof...(Parameters)) {
            keep(member, [](NSObject* object, Called called, std::span<Value const> arguments, Selector name) {
                auto const target = called.as<Result (T::*)(Parameters...) const>();
                return call<T, Result, Parameters...>(object, target, arguments, name, std::index_sequence_for<Parameters...>{});
            });
        }
        template <class Result, class... Parameters>
        Entry(Selector selector, Result (*function)(Parameters...)) : Entry(selector, sizeof...(Parameters)) {
            isOfClass_ = true;
            keep(function, [](NSObject*, Called called, std::span<Value const> arguments, Selector name) {
                auto const target = called.as<Result (*)(Parameters...)>();
                return callFunction<Result, Parameters...>(target, arguments, name, std::index_sequence_for<Parameters...>{});
            });
        }

        Selector selector() const noexcept { return selector_; }
        std::size_t parameterCount() const noexcept { return count_; }
        bool isOfClass() const noexcept { return isOfClass_; }
        /// The receiver is null for a message to the class.
        Value operator()(NSObject* object, std::span<Value const> arguments) const;

    private:
        /// A pointer to a function or member of any type.
        struct Called {
            template <class Pointer> Pointer as() const noexcept {
                Pointer pointer;
                std::memcpy(&pointer, bytes, sizeof pointer);
                return pointer;
            }
            alignas(void*) std::byte bytes[2 * sizeof(void*)] = {};
        };
        using Call = Value (*)(NSObject*, Called, std::span<Value const>, Selector);

        Entry(Selector selector, std::size_t count) : selector_(selector), count_(count) {}
        template <class Pointer> void keep(Pointer pointer, Call call) noexcept {
            static_assert(sizeof pointer <= sizeof called_.bytes);
            std::memcpy(called_.bytes, &pointer, sizeof pointer);
            call_ = call;
        }

        template <class T, class Result, class... Parameters, class Member, std::size_t... I>
        static Value call(NSObject* object, Member member, std::span<Value const> arguments, Selector name,
                          std::index_sequence<I...>) {
            auto* receiver = dynamic_cast<T*>(object);
            if (!receiver) fatal("selector " + name.name() + " was registered for another class");
            if constexpr (std::is_void_v<Result>) {
                (receiver->*member)(argument<std::remove_cvref_t<Parameters>>(arguments[I], name)...);
                return {};
            } else {
                return Value((receiver->*member)(argument<std::remove_cvref_t<Parameters>>(arguments[I], name)...));
            }
        }

        template <class Result, class... Parameters, std::size_t... I>
        static Value callFunction(Result (*function)(Parameters...), std::span<Value const> arguments, Selector name,
                                  std::index_sequence<I...>) {
            if constexpr (std::is_void_v<Result>) {
                function(argument<std::remove_cvref_t<Parameters>>(arguments[I], name)...);
                return {};
            } else {
                return Value(function(argument<std::remove_cvref_t<Parameters>>(arguments[I], name)...));
            }
        }

        template <class P>
            requires requires { typename P::value_type; } && std::is_same_v<P, std::optional<typename P::value_type>>
        static P argument(Value const& value, Selector name) {
            if (value.isAbsent()) return {};
            return argument<typename P::value_type>(value, name);
        }
        template <class P> static P argument(Value const& value, Selector name) {
            if constexpr (std::is_same_v<P, Value>) {
                return value;
            } else {
                if constexpr (requires { typename RefElement<P>::type; })
                    if (value.isAbsent()) return nullptr;
                auto converted = value.as<P>();
                if (!converted) fatal("wrong argument for selector " + name.name());
                return *std::move(converted);
            }
        }

        Selector selector_;
        std::size_t count_;
        bool isOfClass_ = false;
        Called called_;
        Call call_ = nullptr;
    };

    SelectorTable() = default;
    SelectorTable(std::initializer_list<Entry> entries) : entries_(entries) {}

    Entry const* find(Selector selector, bool ofClass = false) const noexcept;

private:
    std::vector<Entry> entries_;
};

} // namespace Tessarin
