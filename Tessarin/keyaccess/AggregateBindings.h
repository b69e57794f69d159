#pragma once
#include <cstddef>

namespace Tessarin::reflection {

inline constexpr std::size_t mostFields = 40;

/// Calls `visitor` with every field of an aggregate that has `count` of them, at most `mostFields`. The language binds only a
/// number of names that is written down, hence the table.
template <std::size_t count, class T, class Visitor> constexpr decltype(auto) visitFields(T const& value, Visitor&& visitor) {
    static_assert(count <= mostFields);
    if constexpr (count == 0) {
        static_cast<void>(value);
        return visitor();
    } else if constexpr (count == 1) {
        auto const& [f0] = value;
        return visitor(f0);
    } else if constexpr (count == 2) {
        auto const& [f0, f1] = value;
        return visitor(f0, f1);
    } else if constexpr (count == 3) {
        auto const& [f0, f1, f2] = value;
        return visitor(f0, f1, f2);
    } else if constexpr (count == 4) {
        auto const& [f0, f1, f2, f3] = value;
        return visitor(f0, f1, f2, f3);
    } else if constexpr (count == 5) {
        auto const& [f0, f1, f2, f3, f4] = value;
        return visitor(f0, f1, f2, f3, f4);
    } else if constexpr (count == 6) {
        auto const& [f0, f1, f2, f3, f4, f5] = value;
        return visitor(f0, f1, f2, f3, f4, f5);
    } else if constexpr (count == 7) {
        auto const& [f0, f1, f2, f3, f4, f5, f6] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6);
    } else if constexpr (count == 8) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7);
    } else if constexpr (count == 9) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8);
    } else if constexpr (count == 10) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9);
    } else if constexpr (count == 11) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10);
    } else if constexpr (count == 12) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11);
    } else if constexpr (count == 13) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12);
    } else if constexpr (count == 14) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13);
    } else if constexpr (count == 15) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14);
    } else if constexpr (count == 16) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15);
    } else if constexpr (count == 17) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16);
    } else if constexpr (count == 18) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17);
    } else if constexpr (count == 19) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18);
    } else if constexpr (count == 20) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19);
    } else if constexpr (count == 21) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20);
    } else if constexpr (count == 22) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21);
    } else if constexpr (count == 23) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22] =
            value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22);
    } else if constexpr (count == 24) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                     f23] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23);
    } else if constexpr (count == 25) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24);
    } else if constexpr (count == 26) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25);
    } else if constexpr (count == 27) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26);
    } else if constexpr (count == 28) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27);
    } else if constexpr (count == 29) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28);
    } else if constexpr (count == 30) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29);
    } else if constexpr (count == 31) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30);
    } else if constexpr (count == 32) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31);
    } else if constexpr (count == 33) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31, f32] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31, f32);
    } else if constexpr (count == 34) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31, f32, f33] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31, f32, f33);
    } else if constexpr (count == 35) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34);
    } else if constexpr (count == 36) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35);
    } else if constexpr (count == 37) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35, f36] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35, f36);
    } else if constexpr (count == 38) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35, f36, f37] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35, f36, f37);
    } else if constexpr (count == 39) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35, f36, f37, f38] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35, f36, f37, f38);
    } else if constexpr (count == 40) {
        auto const& [f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22, f23,
                     f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35, f36, f37, f38, f39] = value;
        return visitor(f0, f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17, f18, f19, f20, f21, f22,
                       f23, f24, f25, f26, f27, f28, f29, f30, f31, f32, f33, f34, f35, f36, f37, f38, f39);
    }
}

} // namespace Tessarin::reflection
