// Live lists as models for Qt: Qt's own tester and views watch each step.
#include "integration/qt/QtResultsModel.h"

#include "tests/integration/Shelves.h"
#include <QAbstractItemModelTester>
#include <QApplication>
#include <QListView>
#include <QSortFilterProxyModel>
#include <QTreeView>
#include <map>

namespace Tessarin::tests {
namespace {

std::string titleOf(QModelIndex const& index) { return index.data().toString().toStdString(); }

/// What a view of the model would show: "1: a b | 3: c" with sections, else "a b".
std::string shown(QAbstractItemModel const& model, QModelIndex const& parent = {}) {
    std::string text;
    for (int row = 0; row < model.rowCount(parent); ++row) {
        auto const index = model.index(row, 0, parent);
        text += (row == 0 ? "" : " ") + titleOf(index);
        if (model.hasChildren(index)) text += ": " + shown(model, index) + " |";
    }
    return text;
}

std::string expected(LiveList const& list) {
    std::string text;
    for (std::size_t section = 0; section < list.sections().size(); ++section) {
        auto const& [name, count] = list.sections()[section];
        if (list.hasSections()) text += (section == 0 ? "" : " ") + name.description() + ": ";
        for (std::size_t row = 0; row < count; ++row)
            text += (row == 0 ? "" : " ") + std::string(list.object(section, row)->valueForKey("title").text());
        if (list.hasSections()) text += " |";
    }
    return text;
}

} // namespace

TEST(QtResultsModel, TellsViewsEachStepAndKeepsWhatTheyHold) {
    for (bool const hasSections : {false, true})
        for (std::size_t const mostSteps : {2, 100}) {
            SCOPED_TRACE(testing::Message() << hasSections << ", " << mostSteps);
            Shelves shelves;
            std::mt19937 random(static_cast<std::uint32_t>(mostSteps));
            QtResultsModel model(shelves.list(hasSections ? LiveOptions{.sectionKeyPath = "year"} : LiveOptions()));
            model.addColumn("Title", "title").addColumn("Year", "year").setMostSteps(mostSteps);
            QAbstractItemModelTester const tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
            QSortFilterProxyModel sorted;
            sorted.setSourceModel(&model);
            sorted.sort(1);
            QTreeView tree;
            QListView list;
            tree.setModel(&model);
            list.setModel(&sorted);
            std::map<NSManagedObject*, std::pair<Ref<NSManagedObject>, QPersistentModelIndex>> held;
            for (int step = 0; step < 150; ++step) {
                shelves.changeAtRandom(random);
                tree.expandAll();
                ASSERT_EQ(shown(model), expected(*model.list())) << step;
                for (auto& [object, known] : held) {
                    auto const& [reference, index] = known;
                    bool const isThere = model.list()->indexOf(*object).has_value();
                    ASSERT_EQ(index.isValid(), isThere) << step;
                    ASSERT_EQ(model.object(index), isThere ? reference : nullptr) << step;
                }
                std::erase_if(held, [](auto const& each) { return !each.second.second.isValid(); });
                for (std::size_t at = 0; at < model.list()->size(); ++at) {
                    auto const object = (*model.list())[at];
                    held.try_emplace(object.get(), object, QPersistentModelIndex(model.indexOf(*object)));
                }
            }
            EXPECT_GT(held.size(), 5u);
        }
}

TEST(QtResultsModel, EditsThroughTheContextWhatConverts) {
    Shelves const shelves;
    QtResultsModel model(shelves.list());
    model.addColumn("Title", "title", QtResultsModel::Editable).addColumn("Year", "year", QtResultsModel::Editable);
    model.addColumn("Twice", [](NSManagedObject& book, int role) {
        return role == Qt::DisplayRole ? QVariant(qlonglong{2 * book.valueForKey("year").integer()}) : QVariant();
    });
    model.addRole(Qt::UserRole, "published", "year");
    auto const emma = shelves.add("Emma", 1815), persuasion = shelves.add("Persuasion", 1817);
    shelves.turnEnds();
    EXPECT_TRUE(model.setData(model.index(0, 1), "1816"));
    EXPECT_FALSE(model.setData(model.index(0, 1), "soon"));
    EXPECT_FALSE(model.setData(model.index(0, 2), 1)) << "what a closure shows";
    EXPECT_EQ(emma->valueForKey("year").integer(), 1816);
    EXPECT_EQ(model.index(0, 2).data().toInt(), 3632);
    EXPECT_EQ(model.index(0, 0).data(Qt::UserRole).toInt(), 1816);
    QPersistentModelIndex const index = model.index(0, 0);
    EXPECT_TRUE(model.setData(index, "Sanditon"));
    EXPECT_EQ(index.row(), 1) << "it stands behind the other now";
    EXPECT_EQ(shelves.context->updatedObjects().size() + shelves.context->insertedObjects().size(), 2u);
}

TEST(QtResultsModel, MembersArePutInOrderByRows) {
    Shelves const shelves;
    auto const shelf = shelves.context->insertNewObject("Shelf");
    auto books = shelf->mutableSetValueForKey("books");
    for (auto const* title : {"a", "b", "c", "d", "e"}) books.addObject(shelves.add(title));
    shelves.turnEnds();
    QtResultsModel model(make<LiveList>(shelf, "books"));
    model.addColumn("Title", "title");
    QAbstractItemModelTester const tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    int moves = 0;
    QObject::connect(&model, &QAbstractItemModel::rowsMoved, [&] { ++moves; });
    EXPECT_TRUE(model.moveRows({}, 0, 2, {}, 4));
    EXPECT_EQ(shown(model), "c d a b e");
    EXPECT_TRUE(model.moveRows({}, 3, 2, {}, 1));
    EXPECT_EQ(shown(model), "c b e d a");
    EXPECT_EQ(moves, 4) << "each row that was dragged, and no other";
    EXPECT_FALSE(model.moveRows({}, 0, 2, {}, 1)) << "into themselves";
    for (int turn = 0; turn < 200; ++turn) // always between the same two, until there is no room
        EXPECT_TRUE(model.moveRows({}, 3, 1, {}, 2));
    EXPECT_EQ(shown(model), "c b e d a");
    books.removeObject(books.allObjects().front());
    shelves.add("f")->setValueForKey(Value(shelf), "shelf");
    shelves.turnEnds();
    EXPECT_EQ(shown(model), "b e d a f");
    shelves.context->deleteObject(*shelf);
    shelves.turnEnds();
    EXPECT_EQ(shown(model), "");
}

} // namespace Tessarin::tests

int main(int count, char** arguments) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication const application(count, arguments);
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
