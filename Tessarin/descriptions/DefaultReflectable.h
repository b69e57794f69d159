#pragma once
#include "Tessarin/descriptions/DescribeDeeply.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <concepts>
#include <ostream>

namespace Tessarin {

namespace descriptions {

template <class Self> constexpr void mustHaveFields() {
    static_assert(Reflectable<Self>, "this type has no fields to be described by: give it a reflect function");
}

} // namespace descriptions

/// Gives a type its description, its description in depth, and `operator<<`, from its fields or its `reflect`.
///
///     struct Place : DefaultReflectable<Place> { std::string name; int people = 0; };
///     std::cout << Place{.name = "Highbury", .people = 700};             // Place(name: "Highbury", people: 700)
///
/// An object of the runtime names its base, and overrides the description that every object has. Who overrides it again, with
/// another text or more than the fields, has that text in depth, too.
///
///     class Book : public DefaultReflectable<Book, NSObject> {
///     public:
///         template <class Visitor> void reflect(Visitor&& child) const { child("title", title_), child("year", year_); }
template <class Self> struct DefaultReflectable<Self, void> {
    std::string description() const {
        descriptions::mustHaveFields<Self>();
        return descriptions::describedByFields(static_cast<Self const&>(*this));
    }
    std::string deepDescription(DeepDescriptionOptions const& options = {}) const {
        descriptions::mustHaveFields<Self>();
        return describeDeeply(static_cast<Self const&>(*this), options);
    }
    friend std::ostream& operator<<(std::ostream& out, DefaultReflectable const& value) {
        return out << static_cast<Self const&>(value).description();
    }
    /// Of this base alone, so that a type may default its own; one that does not cannot be compared.
    template <std::same_as<DefaultReflectable> T> friend constexpr bool operator==(T const&, T const&) noexcept { return true; }
};

template <class Self, class Base> struct DefaultReflectable : Base {
    static_assert(std::is_base_of_v<NSObject, Base>, "the base of an object that describes itself is an object");

    std::string description() const override {
        descriptions::mustHaveFields<Self>();
        auto const& self = static_cast<Self const&>(*this);
        if (descriptions::DeepDescription::answers(static_cast<NSObject const&>(*this), &self, &descriptions::writeFields<Self>))
            return {};
        return descriptions::describedByFields(self);
    }
    virtual std::string deepDescription(DeepDescriptionOptions const& options = {}) const {
        return describeDeeply(static_cast<NSObject const&>(*this), options);
    }

protected:
    DefaultReflectable() = default;
};

} // namespace Tessarin
