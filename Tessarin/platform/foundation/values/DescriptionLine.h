#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/Value.h"
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Tessarin {

class NSObject;

/// A description of one line while it is written. It knows what keeps one finite: how many levels lie around the place where it
/// stands, and to which objects pointers led on the way there. A line that is begun meanwhile on the same thread, because an
/// object describes what it holds, goes on counting. Lives on the stack of one thread.
class TESSARIN_API DescriptionLine {
public:
    /// What lies deeper is left out.
    static constexpr unsigned mostLevels = 64;
    /// Behind the first pointer, further ones are followed while the line is no longer than this, in bytes.
    static constexpr std::size_t longLine = 16'384;

    DescriptionLine() noexcept;
    ~DescriptionLine();
    DescriptionLine(DescriptionLine const&) = delete;
    DescriptionLine& operator=(DescriptionLine const&) = delete;

    void append(char c) { text_ += c; }
    void append(std::string_view piece) { text_ += piece; }
    void appendNumber(std::int64_t number);
    void appendNumber(std::uint64_t number);
    void appendNumber(double number);
    void appendNumber(float number);
    void appendAddress(void const* address);
    /// In quotation marks inside of something else; as it is where it is everything.
    void appendText(std::string_view text);
    void appendText(std::u16string_view text);
    void appendText(std::u32string_view text);
    void appendValue(Value const& value);
    /// What an object says of itself. Inside of something else it is kept to one line.
    void appendOwn(void const* object, FunctionRef<std::string()> description);
    /// "Editor(…)".
    void appendMention(NSObject const& object);
    void appendMention(std::string_view type) { text_.append(type).append("(…)"); }
    void appendStreamed(FunctionRef<void(std::ostream&)> write);

    /// Goes one level down, for as long as it lives.
    class Inside {
    public:
        explicit Inside(DescriptionLine& line) noexcept : line_(line) { ++line_.level_; }
        ~Inside() { --line_.level_; }
        Inside(Inside const&) = delete;

    private:
        DescriptionLine& line_;
    };
    /// What a pointer led to, or what is described as a whole, for as long as it lives.
    class Pointee {
    public:
        Pointee(DescriptionLine& line, void const* object) noexcept : line_(line), object_(object), outer_(line.path_) {
            line.path_ = this;
        }
        ~Pointee() { line_.path_ = outer_; }
        Pointee(Pointee const&) = delete;

    private:
        friend class DescriptionLine;
        DescriptionLine& line_;
        void const* object_;
        Pointee const* outer_;
    };

    /// Whether something with content of its own may be written out here; else "(…)" stands for it.
    bool isOpen() const noexcept { return outerLevel_ + level_ < mostLevels; }
    /// Whether the object that a pointer leads to may be: it must not lie on the way here.
    bool mayFollow(void const* object) const noexcept;
    bool isInside() const noexcept { return level_ > 0; }
    void reserve(std::size_t size) { text_.reserve(size); }
    std::string take() noexcept { return std::move(text_); }

private:
    template <class Elements> void appendElements(Elements const& elements, std::string_view ends);

    std::string text_;
    unsigned level_ = 0;
    DescriptionLine* const outer_; // the line in whose course this one was begun; null when there is none
    unsigned const outerLevel_;
    std::size_t const outerSize_;
    Pointee const* path_;
};

} // namespace Tessarin
