#pragma once
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "Tessarin/platform/objectgraph/live/LiveReplay.h"
#include "integration/qt/QtValues.h"
#include <QAbstractItemModel>
#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

namespace Tessarin {

/// A live list as a model for Qt's views and for QML: a list or table, or, with sections, a tree whose first level are these. It
/// tells views each step of a change, so that selection, current row and open sections stay. On the main thread, over a list of a
/// main-queue context, beside a `QtMainQueue`. Rows are read where a view looks.
///
///     QtResultsModel model(books.list());
///     model.addColumn("Title", "title", QtResultsModel::Editable);
///     model.addColumn("Age", [](NSManagedObject& book, int role) { return role == Qt::DisplayRole ? ageOf(book) : QVariant(); });
///     view.setModel(&model);
class QtResultsModel : public QAbstractItemModel {
public:
    enum Editing { Fixed, Editable };
    using Reader = std::function<QVariant(NSManagedObject& object, int role)>;

    explicit QtResultsModel(Ref<LiveList> list, QObject* parent = nullptr)
        : QAbstractItemModel(parent), list_(std::move(list)), replay_(*list_) {
        for (std::size_t at = 0; at < replay_.sections(); ++at) sections_.push_back(std::make_unique<Section>(Section{at}));
        connection_ = list_->observe([this](LiveChanges const& changes) { follow(changes.steps()); });
    }

    /// A column of an attribute, or of what stands at the end of a key path (give the list that in `shownKeyPaths`). What a user
    /// types in an editable one is converted to the attribute's type, and set in the list's context; what does not convert, or
    /// what the attribute's rules refuse, is not taken.
    QtResultsModel& addColumn(QString title, std::string keyPath, Editing editing = Fixed) {
        return add({std::move(title), std::move(keyPath), {}, editing == Editable});
    }
    /// A column of whatever the closure makes of an object for a role.
    QtResultsModel& addColumn(QString title, Reader reader) { return add({std::move(title), {}, std::move(reader), false}); }
    /// The same as a role by name, as QML asks for it.
    QtResultsModel& addRole(int role, QByteArray name, std::string keyPath) {
        roles_.push_back({role, std::move(name), std::move(keyPath)});
        return *this;
    }
    /// A change in more steps is told as one change of the layout: 100 unless set. Selection stays then, too.
    void setMostSteps(std::size_t count) noexcept { mostSteps_ = count; }

    /// The object of a row; null for a section, and for a row that is about to go.
    Ref<NSManagedObject> object(QModelIndex const& index) const {
        if (!index.isValid() || isSection(index)) return nullptr;
        auto const place = replay_.inTheEnd({sectionOf(index), static_cast<std::size_t>(index.row())});
        return place ? list_->object(place->section, place->row) : nullptr;
    }
    /// Where the object stands; invalid for one that is not in the list.
    QModelIndex indexOf(NSManagedObject const& object, int column = 0) const {
        auto rank = list_->indexOf(object);
        if (!rank || isTelling_) return {};
        std::size_t section = 0;
        while (hasSections() && section + 1 < sections_.size() && list_->firstOf(section + 1) <= *rank) ++section;
        return rowIndex(section, *rank - list_->firstOf(section), column);
    }
    Ref<LiveList> const& list() const noexcept { return list_; }

    QModelIndex index(int row, int column, QModelIndex const& parent = {}) const override {
        if (!hasIndex(row, column, parent)) return {};
        if (hasSections() && !parent.isValid()) return createIndex(row, column, nullptr);
        return rowIndex(parent.isValid() ? static_cast<std::size_t>(parent.row()) : 0, static_cast<std::size_t>(row), column);
    }
    QModelIndex parent(QModelIndex const& index) const override {
        return !index.isValid() || !hasSections() || isSection(index) ? QModelIndex() : sectionIndex(sectionOf(index));
    }
    int rowCount(QModelIndex const& parent = {}) const override {
        if (!hasSections()) return parent.isValid() ? 0 : static_cast<int>(replay_.rows(0));
        if (!parent.isValid()) return static_cast<int>(replay_.sections());
        return isSection(parent) && parent.column() == 0 ? static_cast<int>(replay_.rows(static_cast<std::size_t>(parent.row())))
                                                         : 0;
    }
    int columnCount(QModelIndex const& parent = {}) const override {
        return parent.isValid() && !hasSections() ? 0 : static_cast<int>(std::max<std::size_t>(1, columns_.size()));
    }
    QVariant data(QModelIndex const& index, int role = Qt::DisplayRole) const override {
        if (!index.isValid()) return {};
        if (isSection(index)) return sectionData(index, role);
        auto const object = this->object(index);
        if (!object) return {};
        for (auto const& each : roles_)
            if (each.role == role) return variantFrom(KeyPath(each.keyPath).valueFrom(Value(object)));
        if (static_cast<std::size_t>(index.column()) >= columns_.size()) return {};
        auto const& column = columns_[static_cast<std::size_t>(index.column())];
        if (column.reader) return column.reader(*object, role);
        if (role != Qt::DisplayRole && role != Qt::EditRole) return {};
        return variantFrom(KeyPath(column.keyPath).valueFrom(Value(object)));
    }
    bool setData(QModelIndex const& index, QVariant const& variant, int role = Qt::EditRole) override {
        auto const object = this->object(index);
        if (role != Qt::EditRole || !object || static_cast<std::size_t>(index.column()) >= columns_.size()) return false;
        auto const& column = columns_[static_cast<std::size_t>(index.column())];
        auto const* property = object->entity().propertyNamed(column.keyPath);
        auto const* attribute = property ? property->asAttribute() : nullptr;
        auto const value = attribute && column.isEditable ? valueFrom(variant, attribute->attributeType()) : std::nullopt;
        if (!value || object->validateValueForKey(*value, column.keyPath)) return false;
        object->setValueForKey(*value, column.keyPath);
        if (auto const context = list_->context())
            context->processPendingChanges(); // a view expects to be told before it goes on
        return true;
    }
    Qt::ItemFlags flags(QModelIndex const& index) const override {
        auto flags = QAbstractItemModel::flags(index);
        if (list_->owner()) flags |= index.isValid() ? Qt::ItemIsDragEnabled : Qt::ItemIsDropEnabled;
        if (!index.isValid() || isSection(index) || static_cast<std::size_t>(index.column()) >= columns_.size()) return flags;
        return columns_[static_cast<std::size_t>(index.column())].isEditable ? flags | Qt::ItemIsEditable : flags;
    }
    /// A list of members (`LiveList` of an ordered relationship) is put in order by dragging rows, where the view drags
    /// (`setDragDropMode(QAbstractItemView::InternalMove)`).
    bool moveRows(QModelIndex const& source, int first, int count, QModelIndex const& destination, int before) override {
        if (!list_->owner() || source.isValid() || destination.isValid() || first < 0 || count < 1 || before < 0) return false;
        if (first + count > rowCount() || before > rowCount() || (before >= first && before <= first + count)) return false;
        auto members = list_->owner()->mutableSetValueForKey(list_->relationship()->name());
        for (int moved = 0; moved < count; ++moved) {
            bool const isDown = before > first;
            members.moveObject(static_cast<std::size_t>(isDown ? first : first + moved),
                               static_cast<std::size_t>(isDown ? before - 1 : before + moved));
        }
        if (auto const context = list_->context()) context->processPendingChanges();
        return true;
    }
    Qt::DropActions supportedDropActions() const override {
        return list_->owner() ? Qt::MoveAction : QAbstractItemModel::supportedDropActions();
    }
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override {
        bool const isTitle =
            orientation == Qt::Horizontal && role == Qt::DisplayRole && static_cast<std::size_t>(section) < columns_.size();
        return isTitle ? QVariant(columns_[static_cast<std::size_t>(section)].title)
                       : QAbstractItemModel::headerData(section, orientation, role);
    }
    QHash<int, QByteArray> roleNames() const override {
        auto names = QAbstractItemModel::roleNames();
        for (auto const& role : roles_) names.insert(role.role, role.name);
        return names;
    }

private:
    struct Column {
        QString title;
        std::string keyPath;
        Reader reader; // in place of the key path
        bool isEditable = false;
    };
    struct Role {
        int role;
        QByteArray name;
        std::string keyPath;
    };
    /// What an index of a row points to: its section, wherever that stands by then.
    struct Section {
        std::size_t place;
    };

    QtResultsModel& add(Column column) {
        auto const at = static_cast<int>(columns_.size());
        bool const isFirst = at == 0; // there was one without a title
        if (!isFirst) beginInsertColumns({}, at, at);
        columns_.push_back(std::move(column));
        if (!isFirst) endInsertColumns();
        return *this;
    }

    bool hasSections() const noexcept { return list_->hasSections(); }
    bool isSection(QModelIndex const& index) const noexcept { return index.isValid() && !index.internalPointer(); }
    std::size_t sectionOf(QModelIndex const& row) const { return static_cast<Section const*>(row.internalPointer())->place; }
    QModelIndex sectionIndex(std::size_t section) const {
        return hasSections() ? createIndex(static_cast<int>(section), 0, nullptr) : QModelIndex();
    }
    QModelIndex rowIndex(std::size_t section, std::size_t row, int column) const {
        return createIndex(static_cast<int>(row), column, sections_[section].get());
    }
    QVariant sectionData(QModelIndex const& index, int role) const {
        if (role != Qt::DisplayRole || index.column() != 0) return {};
        auto section = static_cast<std::size_t>(index.row());
        if (isTelling_) return nameInTheEnd(section);
        return variantFrom(list_->sections()[section].name);
    }
    /// An empty section between two steps has no name that could be asked for.
    QVariant nameInTheEnd(std::size_t section) const {
        auto const place = replay_.rows(section) != 0 ? replay_.inTheEnd({section, 0}) : std::nullopt;
        return place ? variantFrom(list_->sections()[place->section].name) : QVariant();
    }

    void follow(std::span<LiveChange const> steps) {
        isTelling_ = true;
        replay_.begin(steps);
        if (steps.size() > mostSteps_)
            changeLayout(steps);
        else
            for (auto const& step : steps) tell(step);
        isTelling_ = false;
    }

    void tell(LiveChange const& step) {
        auto const parent = [&](std::size_t section) { return sectionIndex(section); };
        auto const first = static_cast<int>(step.row), last = static_cast<int>(step.row + step.count) - 1;
        auto const section = static_cast<int>(step.section);
        using Kind = LiveChange::Kind;
        switch (step.kind) {
        case Kind::InsertSection: beginInsertRows({}, section, section); break;
        case Kind::RemoveSection: beginRemoveRows({}, section, section); break;
        case Kind::Insert: beginInsertRows(parent(step.section), first, last); break;
        case Kind::Remove: beginRemoveRows(parent(step.section), first, last); break;
        case Kind::Move: {
            bool const isDown = step.section == step.toSection && step.toRow > step.row; // Qt counts the row itself, too
            beginMoveRows(parent(step.section), first, first, parent(step.toSection),
                          static_cast<int>(step.toRow) + (isDown ? 1 : 0));
            break;
        }
        case Kind::Update: break;
        }
        replay_.take();
        changeSections(step);
        switch (step.kind) {
        case Kind::InsertSection:
        case Kind::Insert: return endInsertRows();
        case Kind::RemoveSection:
        case Kind::Remove: return endRemoveRows();
        case Kind::Move: return endMoveRows();
        case Kind::Update:
            emitChanged(rowIndex(step.section, step.row, 0),
                        rowIndex(step.section, step.row + step.count - 1, columnCount() - 1));
        }
    }
    void emitChanged(QModelIndex const& first, QModelIndex const& last) { Q_EMIT dataChanged(first, last); }

    void changeSections(LiveChange const& step) {
        auto const at = sections_.begin() + static_cast<std::ptrdiff_t>(step.section);
        if (step.kind == LiveChange::Kind::InsertSection)
            sections_.insert(at, std::make_unique<Section>());
        else if (step.kind == LiveChange::Kind::RemoveSection)
            sections_.erase(at);
        else
            return;
        for (auto place = step.section; place < sections_.size(); ++place) sections_[place]->place = place;
    }

    /// Everything at once; where each row went is known.
    void changeLayout(std::span<LiveChange const> steps) {
        Q_EMIT layoutAboutToBeChanged();
        auto const before = persistentIndexList();
        struct Way {
            bool isSection;
            std::optional<LiveReplay::Place> place;
            Section* section; // where it is one
        };
        std::vector<Way> ways;
        for (auto const& index : before) {
            if (isSection(index))
                ways.push_back({true, {}, sections_[static_cast<std::size_t>(index.row())].get()});
            else
                ways.push_back({false, replay_.inTheEnd({sectionOf(index), static_cast<std::size_t>(index.row())}), nullptr});
        }
        std::vector<std::unique_ptr<Section>> gone; // kept, so that they can be told from those that stay
        for (auto const& step : steps) {
            if (step.kind == LiveChange::Kind::RemoveSection) gone.push_back(std::move(sections_[step.section]));
            changeSections(step);
        }
        replay_.end();
        QModelIndexList after;
        for (std::size_t at = 0; at < ways.size(); ++at) {
            auto const& [isSectionItself, place, section] = ways[at];
            auto const column = before[static_cast<qsizetype>(at)].column();
            bool const isThere =
                isSectionItself && section->place < sections_.size() && sections_[section->place].get() == section;
            after.push_back(isThere ? createIndex(static_cast<int>(section->place), column, nullptr)
                            : place ? rowIndex(place->section, place->row, column)
                                    : QModelIndex());
        }
        changePersistentIndexList(before, after);
        Q_EMIT layoutChanged();
    }

    Ref<LiveList> list_;
    LiveReplay replay_;
    std::vector<std::unique_ptr<Section>> sections_;
    std::vector<Column> columns_;
    std::vector<Role> roles_;
    std::size_t mostSteps_ = 100;
    bool isTelling_ = false;
    ScopedConnection connection_;
};

} // namespace Tessarin
