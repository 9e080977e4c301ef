// Icons that show whether their checkable action is checked.
#include "checkedicon.h"

#include <QPainter>
#include <QPixmap>

QIcon WithCheckedState(const QIcon& icon) {
    QList<QSize> sizes = icon.availableSizes();
    if (sizes.isEmpty())
        sizes = {QSize(16, 16), QSize(32, 32)};
    QIcon checked;
    for (const QSize& size : sizes) {
        const QPixmap off = icon.pixmap(size, QIcon::Normal, QIcon::Off);
        checked.addPixmap(off, QIcon::Normal, QIcon::Off);
        QPixmap on(off.size());
        on.fill(Qt::transparent);
        QPainter painter(&on);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF square = QRectF(on.rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        painter.setPen(QColor(20, 80, 140));
        painter.setBrush(QColor(120, 180, 230));
        painter.drawRoundedRect(square, 2, 2);
        painter.drawPixmap(0, 0, off);
        painter.end();
        checked.addPixmap(on, QIcon::Normal, QIcon::On);
    }
    return checked;
}
