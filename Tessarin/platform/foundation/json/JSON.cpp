#include "Tessarin/platform/foundation/json/JSON.h"

#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/runtime/NestingPrivate.h"

#include <fmt/format.h>
#include <simdjson.h>

namespace Tessarin::JSON {
namespace {

namespace ondemand = simdjson::ondemand;

[[noreturn]] void refuse(std::string_view reason) {
    throw ErrorException(
        NSError::errorWithDomain(NSFormatErrorDomain, 2, {{NSLocalizedDescriptionKey, fmt::format("not JSON: {}", reason)}}));
}

/// Builds values from one document. Keys longer than a Text holds inline are shared among the objects that repeat them.
class Builder {
public:
    template <class Source> Value read(Source& source, std::size_t depth = 0) { // a document or a value inside one
        if (depth > deepestLevel) refuse("nested too deeply");
        switch (ondemand::json_type const type = source.type()) {
        case ondemand::json_type::object: return readObject(source.get_object(), depth);
        case ondemand::json_type::array: return readArray(source.get_array(), depth);
        case ondemand::json_type::string: return Value(std::string_view(source.get_string()));
        case ondemand::json_type::number: return readNumber(source);
        case ondemand::json_type::boolean: return Value(bool(source.get_bool()));
        case ondemand::json_type::null:
            if (!source.is_null()) refuse("a misspelt null");
            return {};
        }
        refuse("no value");
    }

private:
    /// Objects that stand beside one another mostly have the same keys in the same order. As long as that is so, each is new.
    Value readObject(ondemand::object object, std::size_t depth) {
        std::vector<Text> none; // of one that is nested so deeply that it stands beside few
        auto& keys = depth < keysOfLast_.size() ? keysOfLast_[depth] : none;
        Dictionary dictionary;
        dictionary.reserve(std::max<std::size_t>(keys.size(), 4));
        bool isAlike = true;
        for (auto each : object) {
            ondemand::field field = std::move(each);
            auto const at = dictionary.size();
            isAlike = isAlike && at < keys.size() && field.key().unsafe_is_equal(keys[at].view());
            auto name = isAlike ? keys[at] : sharedKey(field.unescaped_key());
            auto content = read(field.value(), depth + 1);
            isAlike ? dictionary.append(std::move(name), std::move(content))
                    : dictionary.set(std::move(name), std::move(content));
        }
        if (!isAlike || dictionary.size() != keys.size()) remember(dictionary, keys);
        return dictionary;
    }

    /// Unless one of its keys stands in a document otherwise than it reads: what is remembered is compared with the document.
    static void remember(Dictionary const& dictionary, std::vector<Text>& keys) {
        keys.clear();
        for (auto const& entry : dictionary) {
            if (entry.key.view().find_first_of("\"\\") != std::string_view::npos) return keys.clear();
            keys.push_back(entry.key);
        }
    }

    Value readArray(ondemand::array array, std::size_t depth) {
        List list;
        for (ondemand::value element : array) list.push_back(read(element, depth + 1));
        return list;
    }

    /// `get_number` takes fractions with 19 digits or more for 0, and knows no integer beyond 64 bits.
    template <class Source> static Value readNumber(Source& source) {
        std::string_view const token = source.raw_json_token();
        bool const isLongFraction = token.size() >= 19 && token.find_first_of(".eE") != token.npos;
        ondemand::number number;
        if (isLongFraction || source.get_number().get(number)) return Value(double(source.get_double()));
        if (number.is_int64()) return Value(number.get_int64());
        return Value(number.is_uint64() ? static_cast<double>(number.get_uint64()) : number.get_double());
    }

    Text sharedKey(std::string_view key) {
        if (key.size() <= 14) return Text{key};
        auto& known = keys_[(key.size() * 31 + static_cast<unsigned char>(key[0]) * 7 + static_cast<unsigned char>(key.back())) %
                            keys_.size()];
        if (known != key) known = Text{key};
        return known;
    }

    std::array<Text, 64> keys_;
    std::array<std::vector<Text>, 8> keysOfLast_; // by depth
};

/// Runs `work` on the document and turns the parser's exceptions into ours.
template <class Work> void withDocument(simdjson::padded_string const& text, Work work) try {
    ondemand::parser parser;
    ondemand::document document = parser.iterate(text);
    work(document);
    if (document.current_location().error() != simdjson::OUT_OF_BOUNDS) refuse("something follows the value");
} catch (simdjson::simdjson_error const& error) {
    refuse(error.what());
}

Value parsed(simdjson::padded_string const& text) {
    Value value;
    withDocument(text, [&](ondemand::document& document) { value = Builder{}.read(document); });
    return value;
}

simdjson::padded_string contents(NSURL const& url) {
    auto const data = NSData::contentsOfURL(url);
    auto text = data.text();
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3); // some editors begin a file with this mark
    return simdjson::padded_string(text);
}

void forEachIn(simdjson::padded_string const& text, FunctionRef<void(Value)> each) {
    withDocument(text, [&](ondemand::document& document) {
        Builder builder;
        for (ondemand::value element : document.get_array()) each(builder.read(element, 1));
    });
}

} // namespace

Value parse(std::string_view text) { return parsed(simdjson::padded_string(text)); }
Value contentsOfURL(NSURL const& url) { return parsed(contents(url)); }

void forEachElement(std::string_view text, FunctionRef<void(Value)> each) { forEachIn(simdjson::padded_string(text), each); }
void forEachElement(NSURL const& url, FunctionRef<void(Value)> each) { forEachIn(contents(url), each); }

} // namespace Tessarin::JSON
