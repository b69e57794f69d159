#include "Tessarin/text/TextIndex.h"

#include "Tessarin/platform/foundation/text/BeginningsPrivate.h"
#include "Tessarin/platform/foundation/text/ClustersPrivate.h"
#include "Tessarin/text/CharacterRangePrivate.h"

namespace Tessarin {

struct TextIndex::Table {
    Text text;
    clusters::Beginnings beginnings;
};

TextIndex::TextIndex(Text text) {
    auto table = std::make_shared<Table>();
    table->text = std::move(text);
    text_ = table->text.view();
    isPlain_ = clusters::isOfSingleBytes(text_);
    if (!isPlain_) table->beginnings = clusters::Beginnings{text_};
    length_ = isPlain_ ? text_.size() : table->beginnings.count();
    table_ = std::move(table);
}

std::string_view TextIndex::clusterAt(std::size_t index) const noexcept {
    auto const from = table_->beginnings.offsetOf(index);
    return text_.substr(from, table_->beginnings.nextAfter(from) - from);
}

std::string_view TextIndex::sub(std::ptrdiff_t from, std::ptrdiff_t to) const noexcept {
    auto const range = CharacterRange::within(length_, from, to);
    auto const first = *offsetOf(range.from);
    return text_.substr(first, *offsetOf(range.to) - first);
}

std::optional<std::size_t> TextIndex::offsetOf(std::size_t index) const noexcept {
    if (index > length_) return {};
    if (isPlain_) return index;
    return index == length_ ? text_.size() : table_->beginnings.offsetOf(index);
}

std::optional<std::size_t> TextIndex::indexOf(std::size_t offset) const noexcept {
    if (offset >= text_.size()) return {};
    return isPlain_ ? offset : table_->beginnings.indexOf(offset);
}

} // namespace Tessarin
