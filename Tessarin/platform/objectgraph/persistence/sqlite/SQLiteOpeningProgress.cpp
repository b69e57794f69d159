#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningProgressPrivate.h"

#include <sqlite3.h>

#include <algorithm>
#include <utility>

namespace Tessarin {

SQLiteOpeningProgress::SQLiteOpeningProgress(Ref<StoreOpening> opening, SQLite::Connection& connection)
    : opening_(std::move(opening)), connection_(connection) {
    if (opening_) sqlite3_progress_handler(connection_.handle(), operationsPerLook, &look, this);
}

SQLiteOpeningProgress::~SQLiteOpeningProgress() { leave(); }

void SQLiteOpeningProgress::leave() noexcept {
    if (opening_) sqlite3_progress_handler(connection_.handle(), 0, nullptr, nullptr);
}

void SQLiteOpeningProgress::begin(StoreProgress::Stage stage, std::string const& entity, std::int64_t records) {
    if (!opening_) return;
    done_ += std::exchange(weight_, weightOf(records));
    operations_ = 0;
    now_.stage = stage;
    now_.name = entity;
    toldHundredths_ = -1;
    tell();
    if (opening_->isCancelled()) throw ErrorException(opening_->cancellation()); // short statements are never looked at
}

void SQLiteOpeningProgress::end() {
    leave();
    if (!opening_ || now_.stage == StoreProgress::Stage::None) return;
    now_.fraction = 1;
    opening_->tell(now_);
}

void SQLiteOpeningProgress::tell() {
    // A step that takes longer than was thought stands still before its end.
    auto const perRecord = now_.stage == StoreProgress::Stage::MakingIndex ? operationsPerIndexEntry : operationsPerCopy;
    auto const inStep = std::min(operations_ / perRecord, weight_ * 0.95);
    auto const all = std::max(expected_, done_ + weight_);
    now_.fraction = std::max(now_.fraction, all > 0 ? (done_ + inStep) / all : 0);
    auto const hundredths = static_cast<int>(now_.fraction * 100);
    if (hundredths == toldHundredths_) return;
    toldHundredths_ = hundredths;
    opening_->tell(now_);
}

int SQLiteOpeningProgress::look(void* self) noexcept {
    auto& progress = *static_cast<SQLiteOpeningProgress*>(self);
    if (progress.now_.stage != StoreProgress::Stage::None) {
        progress.operations_ += operationsPerLook;
        progress.tell();
    }
    return progress.opening_->isCancelled() ? 1 : 0;
}

} // namespace Tessarin
