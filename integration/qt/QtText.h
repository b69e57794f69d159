#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include <QString>
#include <optional>

namespace Tessarin {

/// Qt's texts as values: in setters, conditions, subscripts and as the type of an attribute. A lone surrogate becomes "?",
/// as Qt writes it.
///
///     static inline Attribute<QString> const title{"title"};
///     book->set(Book::title, lineEdit->text());
///     context->fetch<Book>().where(Book::title.contains(search->text(), caseInsensitive));
///     QString const subtitle = (*book)["subtitle"];
template <> struct ValueTraits<QString> {
    static constexpr auto kind = Value::Kind::Text;
    static Value into(QString const& text) {
        auto const bytes = text.toUtf8();
        return std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    }
    static std::optional<QString> from(Value const& value) {
        if (!value.isText()) return {};
        auto const text = value.text();
        return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
    }
};

} // namespace Tessarin
