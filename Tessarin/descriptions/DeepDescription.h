#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Tessarin {

struct DeepDescriptionOptions {
    std::size_t depth = 32;  // levels of fields and elements below the value itself; what lies deeper reads "(…)"
    std::size_t width = 100; // elements shown of each container; how many more there are is told
    std::size_t indent = 2;  // blanks per level, for the first 32 of them
};

namespace descriptions {

/// The walk of a description in depth. What is still to be walked through waits in a list instead of on the stack, so that a
/// chain of any length can be described. One thread.
class TESSARIN_API DeepDescription {
public:
    /// Writes the node at an address into the walk.
    using Write = void (*)(DeepDescription&, void const*);
    using Kept = std::shared_ptr<void const>;

    explicit DeepDescription(DeepDescriptionOptions const& options);
    ~DeepDescription();
    DeepDescription(DeepDescription const&) = delete;
    std::string describe(void const* root, Write write);

    void append(std::string_view text);
    /// Writes what a node is called. False when its content is not to be shown; else `close` follows it.
    bool open(std::string_view name);
    void close();
    /// Begins the line of a child.
    void beginChild(std::string_view label);
    void beginChild(std::size_t index);
    /// Writes the node at `address` here, when its turn comes: it stays there until the walk has ended, or is kept by `kept`. One
    /// that a pointer leads to is written once.
    void writeLater(void const* address, Write write);
    void writePointee(void const* address, Write write, Kept kept);
    void writeObject(NSObject const& object);
    void writeBytes(std::span<std::byte const> bytes);
    /// "… 900 more".
    void writeRest(std::size_t count);

    /// Writes a node at once, in the middle of another one, that will be gone when its turn would come. The levels of these
    /// lie on the stack: false when there are too many.
    bool mayWriteNow() const noexcept { return levelsOnStack_ < 64; }
    class WritingNow {
    public:
        explicit WritingNow(DeepDescription& walk) noexcept : walk_(walk) { ++walk_.levelsOnStack_; }
        ~WritingNow() { --walk_.levelsOnStack_; }
        WritingNow(WritingNow const&) = delete;

    private:
        DeepDescription& walk_;
    };
    /// Whether what the node refers to stays where it is: not so in one that is gone soon.
    bool isLasting() const noexcept { return levelsOnStack_ == 0; }
    std::size_t width() const noexcept { return options_.width; }

    /// Asked for its description by a walk, an object that describes itself by its fields has them written instead. False when
    /// no walk asks this object.
    static bool answers(NSObject const& object, void const* self, Write write) noexcept;

private:
    struct State;
    DeepDescriptionOptions const options_;
    std::size_t levelsOnStack_ = 0;
    std::size_t level_ = 0;
    std::unique_ptr<State> state_;
};

} // namespace descriptions
} // namespace Tessarin
