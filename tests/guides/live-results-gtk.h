#include "Tessarin/Tessarin.h"
#include "integration/gtk/GLibResultsModel.h"
#include <gtk/gtk.h>

using namespace Tessarin;
extern LiveResults<NSManagedObject>& books;
