#include "Tessarin/Tessarin.h"
#include "integration/qt/QtResultsModel.h"
#include <QAbstractItemView>

using namespace Tessarin;
extern LiveResults<NSManagedObject>& books;
extern QAbstractItemView& view;
