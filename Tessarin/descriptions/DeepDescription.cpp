#include "Tessarin/descriptions/DeepDescription.h"

#include "Tessarin/platform/foundation/values/DescriptionLine.h"
#include "Tessarin/platform/foundation/values/Hexadecimal.h"

#include <algorithm>
#include <fmt/format.h>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tessarin::descriptions {
namespace {

constexpr std::size_t deepestIndent = 32; // a chain of a million nodes would else be indented by a million levels
constexpr std::size_t shownBytes = 16;
constexpr std::size_t unnumbered = static_cast<std::size_t>(-1);

using Write = DeepDescription::Write;
using Kept = DeepDescription::Kept;

/// What is still to be written: a text, a node, or the end of a node that was walked through.
struct Step {
    std::string text;
    void const* address = nullptr;
    Write write = nullptr;
    Kept kept;
    std::size_t level = 0;
    std::size_t node = unnumbered; // which node ends, or `pointee`
};
constexpr std::size_t pointee = unnumbered - 1;

struct Place {
    void const* address;
    Write write; // an object and its first field stand at one address
    bool operator==(Place const&) const = default;
};
struct PlaceHash {
    std::size_t operator()(Place const& place) const noexcept {
        return reinterpret_cast<std::size_t>(place.address) * 0x9E3779B97F4A7C15 ^ reinterpret_cast<std::size_t>(place.write);
    }
};

/// A node that a pointer led to.
struct Node {
    std::string name;
    std::size_t nameEnd;             // in the text: where its number stands, should something lead here again
    Kept kept;                       // until the end, so that nothing else comes to stand at its address
    std::size_t number = unnumbered; // of those that more than one pointer leads to
    bool isOpen = true;              // its content is being written
};

/// A number to be set into the text.
struct Mark {
    std::size_t at, node;
};

struct Asked {
    NSObject const* object;
    void const* self = nullptr;
    Write write = nullptr;
};
thread_local Asked* asked = nullptr;

} // namespace

struct DeepDescription::State {
    std::string text;
    std::vector<Step> waiting, fresh; // the next one last; what the node that is being written consists of, in order
    std::unordered_map<Place, std::size_t, PlaceHash> places;
    std::vector<Node> nodes;
    std::vector<Mark> marks;
    std::string opened; // the name of the node that is being written; empty while it has none

    Step& textStep() {
        if (fresh.empty() || fresh.back().write) fresh.emplace_back();
        return fresh.back();
    }
    void appendReference(std::size_t node);
    std::string numbered();
};

DeepDescription::DeepDescription(DeepDescriptionOptions const& options) : options_(options), state_(new State) {}
DeepDescription::~DeepDescription() = default;

void DeepDescription::append(std::string_view text) { state_->textStep().text += text; }

bool DeepDescription::open(std::string_view name) {
    append(name);
    if (level_ >= options_.depth) {
        append(" (…)");
        return false;
    }
    if (levelsOnStack_ == 0) state_->opened = name;
    ++level_;
    return true;
}

void DeepDescription::close() { --level_; }

void DeepDescription::beginChild(std::string_view label) {
    auto& text = state_->textStep().text;
    text += '\n';
    text.append(std::min(level_, deepestIndent) * options_.indent, ' ');
    text += label;
    if (!label.empty()) text += ": ";
}
void DeepDescription::beginChild(std::size_t index) { beginChild(fmt::format("{}", index)); }

void DeepDescription::writeLater(void const* address, Write write) {
    state_->fresh.push_back({.text = {}, .address = address, .write = write, .kept = {}, .level = level_});
}
void DeepDescription::writePointee(void const* address, Write write, Kept kept) {
    state_->fresh.push_back(
        {.text = {}, .address = address, .write = write, .kept = std::move(kept), .level = level_, .node = pointee});
}

namespace {

/// What the object says of itself, to a walk that asks or to nobody.
std::string ownDescription(NSObject const& object, Asked* question) {
    struct Asking { // also when the object throws
        Asked* outer;
        ~Asking() { asked = outer; }
    } const asking{std::exchange(asked, question)};
    DescriptionLine line;
    DescriptionLine::Inside const inside(line);
    line.appendOwn(&object, [&] { return object.description(); });
    return line.take();
}

} // namespace

void DeepDescription::writeObject(NSObject const& object) {
    Asked question{&object};
    auto const own = ownDescription(object, &question);
    if (question.write && own.empty()) return question.write(*this, question.self);
    append(question.write ? ownDescription(object, nullptr) : own); // an override has added to the fields: it has the last word
}

bool DeepDescription::answers(NSObject const& object, void const* self, Write write) noexcept {
    if (!asked || asked->object != &object) return false;
    asked->self = self;
    asked->write = write;
    return true;
}

void DeepDescription::writeBytes(std::span<std::byte const> bytes) {
    append(fmt::format("{} byte{}", bytes.size(), bytes.size() == 1 ? "" : "s"));
    if (!bytes.empty()) {
        auto const head = bytes.first(std::min(bytes.size(), shownBytes));
        append(": " + hexadecimalFromBytes(head, {.digits = HexadecimalDigits::Upper, .separator = " "}));
    }
    if (bytes.size() > shownBytes) append(" …");
}

void DeepDescription::writeRest(std::size_t count) {
    beginChild(std::string_view{});
    append(fmt::format("… {} more", count));
}

std::string DeepDescription::describe(void const* root, Write write) {
    auto& [text, waiting, fresh, places, nodes, marks, opened] = *state_;
    writePointee(root, write, nullptr);
    waiting.swap(fresh);
    while (!waiting.empty()) {
        auto step = std::move(waiting.back());
        waiting.pop_back();
        if (!step.write) {
            text += step.text;
            if (step.node != unnumbered) nodes[step.node].isOpen = false;
            continue;
        }
        if (step.node == pointee)
            if (auto const known = places.find({step.address, step.write}); known != places.end()) {
                state_->appendReference(known->second);
                continue;
            }
        opened.clear();
        level_ = step.level;
        step.write(*this, step.address);
        if (step.node == pointee && !opened.empty()) { // what is nothing but a text is written as often as it is met
            places.emplace(Place{step.address, step.write}, nodes.size());
            fresh.push_back({.text = {}, .node = nodes.size()});
            nodes.push_back({opened, text.size() + opened.size(), std::move(step.kept)});
        } else if (step.node == pointee && fresh.size() == 1 && fresh[0].write && fresh[0].node == unnumbered) {
            fresh[0].node = pointee; // of an optional or a variant what it holds is the node
            fresh[0].kept = std::move(step.kept);
        } else if (step.kept) {
            nodes.push_back({{}, 0, std::move(step.kept)});
        }
        waiting.insert(waiting.end(), std::make_move_iterator(fresh.rbegin()), std::make_move_iterator(fresh.rend()));
        fresh.clear();
    }
    return state_->numbered();
}

void DeepDescription::State::appendReference(std::size_t node) {
    text += nodes[node].name;
    marks.push_back({text.size(), node});
    text += nodes[node].isOpen ? " (leads back)" : " (above)";
}

/// The text with " #1" behind each name of a node that was met more than once, numbered from top to bottom.
std::string DeepDescription::State::numbered() {
    if (marks.empty()) return std::move(text);
    std::vector<std::size_t> met;
    for (auto const& mark : marks)
        if (std::exchange(nodes[mark.node].number, 0) != 0) met.push_back(mark.node);
    std::ranges::sort(met, {}, [&](auto node) { return nodes[node].nameEnd; });
    for (std::size_t at = 0; at < met.size(); ++at) {
        nodes[met[at]].number = at + 1;
        marks.push_back({nodes[met[at]].nameEnd, met[at]});
    }
    std::ranges::sort(marks, {}, &Mark::at);
    std::string result;
    std::size_t done = 0;
    for (auto const& [at, node] : marks) {
        result.append(text, done, at - done);
        result += fmt::format(" #{}", nodes[node].number);
        done = at;
    }
    return result.append(text, done);
}

} // namespace Tessarin::descriptions
