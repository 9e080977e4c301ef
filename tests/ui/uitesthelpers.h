// Helpers shared by the widget tests: screenshots into the build tree and settings files.
#pragma once

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <QString>
#include <QWidget>

namespace uitest {

// Saves a picture of `widget` as <build>/tests/screenshots/<name>.png so a person can look at the
// state a test checked; returns the path.
inline QString SaveScreenshot(QWidget* widget, const QString& name) {
    const QString dir = QCoreApplication::applicationDirPath() + "/screenshots";
    QDir().mkpath(dir);
    const QString path = dir + "/" + name + ".png";
    widget->grab().save(path);
    return path;
}

// True on a platform that shows real windows (the X server the tests run under).
inline bool HasScreen() {
    return QGuiApplication::platformName() == "xcb";
}

} // namespace uitest
