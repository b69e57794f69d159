#include "Tessarin/Tessarin.h"
#include <QImage>
#include <QPainter>
#include <QWidget>

using namespace Tessarin;
extern QWidget& widget;
extern QImage& image;
extern QPainter& painter;
