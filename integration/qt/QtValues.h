#pragma once
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"
#include "Tessarin/platform/runtime/Value.h"
#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QTimeZone>
#include <QUrl>
#include <QUuid>
#include <QVariant>
#include <algorithm>
#include <optional>
#include <span>

namespace Tessarin {

/// A value as Qt shows it: numbers, texts, dates (in local time), UUIDs, URLs and bytes as their Qt types, objects, lists and all
/// others as their description, absent as an invalid variant.
inline QVariant variantFrom(Value const& value) {
    switch (value.kind()) {
    case Value::Kind::Absent: return {};
    case Value::Kind::Boolean: return value.boolean();
    case Value::Kind::Integer: return static_cast<qlonglong>(value.integer());
    case Value::Kind::Float:
    case Value::Kind::Double: return value.number();
    case Value::Kind::Text: return QString::fromUtf8(value.text().data(), static_cast<qsizetype>(value.text().size()));
    case Value::Kind::Date:
        return QDateTime::fromMSecsSinceEpoch(qRound64((value.dateSeconds() + NSTimeIntervalSince1970) * 1000));
    case Value::Kind::UUID: {
        auto const bytes = value.uuidBytes();
        return QUuid::fromRfc4122(QByteArrayView(reinterpret_cast<char const*>(bytes.data()), 16));
    }
    case Value::Kind::URL: return QUrl(QString::fromUtf8(value.urlText().data(), static_cast<qsizetype>(value.urlText().size())));
    case Value::Kind::Data:
        return QByteArray(reinterpret_cast<char const*>(value.bytes().data()), static_cast<qsizetype>(value.bytes().size()));
    default: return QString::fromStdString(value.description());
    }
}

/// What an editor gives, for an attribute of that type; an invalid variant clears. Absent where it does not convert.
inline std::optional<Value> valueFrom(QVariant const& variant, NSAttributeType type) {
    if (!variant.isValid()) return Value();
    bool converts = true;
    Value value;
    switch (type) {
    case NSAttributeType::String: value = Value(variant.toString().toStdString()); break;
    case NSAttributeType::Boolean: value = Value(variant.toBool()); break;
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64: value = Value(std::int64_t{variant.toLongLong(&converts)}); break;
    case NSAttributeType::Float:
    case NSAttributeType::Double: value = Value(variant.toDouble(&converts)); break;
    case NSAttributeType::Date: {
        auto const date = variant.toDateTime();
        converts = date.isValid();
        if (converts) value = Value::date(static_cast<double>(date.toMSecsSinceEpoch()) / 1000 - NSTimeIntervalSince1970);
        break;
    }
    case NSAttributeType::UUID: {
        auto const uuid = variant.toUuid();
        converts = !uuid.isNull();
        auto const bytes = uuid.toRfc4122();
        std::array<std::uint8_t, 16> raw{};
        std::copy(bytes.begin(), bytes.end(), raw.begin());
        value = Value::uuid(raw);
        break;
    }
    case NSAttributeType::URI: value = Value::url(variant.toUrl().toString(QUrl::FullyEncoded).toStdString()); break;
    case NSAttributeType::BinaryData: {
        auto const bytes = variant.toByteArray();
        value = Value::data(std::as_bytes(std::span(bytes.data(), static_cast<std::size_t>(bytes.size()))));
        break;
    }
    default: return std::nullopt;
    }
    return converts ? std::optional(value) : std::nullopt;
}

} // namespace Tessarin
