// What can be read of an ill-formed preferences file.
#include "Tessarin/platform/foundation/preferences/DefaultsDocumentPrivate.h"

#include "Tessarin/platform/foundation/preferences/DefaultsScanPrivate.h"
#include "Tessarin/platform/foundation/preferences/DefaultsTextPrivate.h"

#include <map>

namespace Tessarin::defaults {
namespace {

/// The names that are taken so far. A name that comes twice makes the whole text ill-formed.
class Names {
public:
    /// Whether the statement may follow those before; if so, its name is taken.
    bool take(StatementName const& name) {
        bool const isValue = name.kind == StatementName::Kind::Value;
        auto* node = isValue ? section_ : &all_;
        for (std::size_t at = 0; at + 1 < name.parts.size(); ++at) {
            auto& next = node->names.try_emplace(name.parts[at], isValue ? Kind::Dotted : Kind::Implied, sections_).first->second;
            bool const isOpen = isValue ? next.kind == Kind::Dotted && next.section == sections_ : next.kind != Kind::Value;
            if (!isOpen) return false;
            node = &next;
        }
        auto const [found, isNew] = node->names.try_emplace(name.parts.back(), Kind::Value, sections_);
        auto& last = found->second;
        if (isValue) return isNew;

        bool const isElement = name.kind == StatementName::Kind::Element;
        if (!isNew && last.kind != (isElement ? Kind::Elements : Kind::Implied)) return false;
        last.kind = isElement ? Kind::Elements : Kind::Section;
        if (isElement) last.names.clear(); // each element has its own
        section_ = &last;
        ++sections_;
        return true;
    }

private:
    enum class Kind { Implied, Section, Elements, Dotted, Value };
    struct Node {
        Node(Kind kind, int section) : kind(kind), section(section) {}
        Kind kind;
        int section; // a dotted name is open only in the section where it was first used
        std::map<std::string, Node> names;
    };

    Node all_{Kind::Section, 0};
    Node* section_ = &all_;
    int sections_ = 0;
};

/// A closed statement may still be one that was never closed and ran into a later one's opening quotes.
bool isAstray(std::string_view text, Extent const& statement, bool isWellFormed) {
    if (!statement.isClosed) return true;
    auto const next = behindTrivia(text, statement.end);
    return statement.isDoubtful && !(isWellFormed && (next == text.size() || looksLikeStart(text, next)));
}

} // namespace

DefaultsDocument DefaultsDocument::salvaged(std::string_view text) {
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    std::string well;
    Names names;
    bool isInGoodSection = true;
    for (std::size_t at = 0;;) {
        auto const begin = behindTrivia(text, at);
        auto const statement = extentFrom(text, begin);
        auto from = at; // with the comments above, unless they are what is ill-formed
        auto name = statementName(text.substr(from, statement.end - from));
        if (begin == text.size()) return DefaultsDocument(name ? well += text.substr(from) : well);
        if (!name) name = statementName(text.substr(from = begin, statement.end - begin));
        bool const isSection = text[begin] == '[';
        bool const goesAstray = isAstray(text, statement, name.has_value());
        bool const isGood = name && !goesAstray && (isSection || isInGoodSection) && names.take(*name);
        if (isSection) isInGoodSection = isGood;
        if (isGood) well += text.substr(from, statement.end - from);
        at = goesAstray ? nextLikelyStart(text, begin) : statement.end;
    }
}

} // namespace Tessarin::defaults
