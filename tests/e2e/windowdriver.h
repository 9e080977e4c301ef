// Drives the whole main window as a user does: settings file, clicks on device rows, the message
// boxes it shows, the feature editors in its tree.
#pragma once

#include "mainwindow.h"
#include "uitesthelpers.h"

#include <qwidgetgrabbedframe.h>

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QPointer>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

#include <memory>

namespace e2e {

// How long discovery may take to list the simulated cameras on a busy machine.
constexpr int kDiscoveryWaitMs = 20000;

// Writes a settings file with a short discovery time-out (so that discovery passes follow each
// other quickly), XML programming offered (so that all 25 camera-switched widgets exist), and
// `extraHost` lines appended to the [host] group and `extraGroups` after it; returns its path.
inline QString WriteSettings(const QString& path, const QByteArray& extraHost = QByteArray(),
                             const QByteArray& extraGroups = QByteArray()) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QString();
    file.write("[host]\ndiscoveryTimeout=300\nshowDropFrame=true\nprogramXML=true\n" + extraHost +
               "\n" + extraGroups);
    return path;
}

// Answers every message box with Ok and keeps the texts.
using uitest::MessageBoxWatcher;

inline QTableWidget* Table(MainWindow& window) {
    return window.findChild<QTableWidget*>("tableWidgetDevices");
}

inline QTreeWidget* Tree(MainWindow& window) {
    return window.findChild<QTreeWidget*>("treeWidgetGenICam");
}

// Clicks the middle of the cell in `row`, `column` of the device table.
inline void ClickRow(MainWindow& window, int row, int column = 1) {
    QTableWidget* table = Table(window);
    const QRect cell = table->visualRect(table->model()->index(row, column));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, cell.center());
}

// A main window with the settings file `settingsPath`, `width` x `height`, shown and listing
// `rows` devices; null when it is not exposed or discovery does not list them in time.
inline std::unique_ptr<MainWindow> OpenWindow(const QString& settingsPath, int rows,
                                              int width = 1600, int height = 1000) {
    auto window = std::make_unique<MainWindow>(nullptr, settingsPath);
    window->resize(width, height);
    if (!QTest::qWaitForWindowExposed(window.get()))
        return nullptr;
    if (!QTest::qWaitFor([&] { return Table(*window)->rowCount() == rows; }, kDiscoveryWaitMs))
        return nullptr;
    return window;
}

// Clicks the first row of the device table and waits until the window is connected.
inline bool ConnectFirstRow(MainWindow& window) {
    ClickRow(window, 0);
    return QTest::qWaitFor([&] { return window.IsConnected(); }, 10000);
}

// Saves screenshots of the whole window as a user sees it at the two sizes it is looked at:
// 1072 x 732 and the full 1920 x 1080 screen (what maximising gives under a window manager),
// as NAME-1072x732.png and NAME-1920x1080.png. A streaming window is grabbed once the display
// has painted two frames at the new size.
inline void SaveAtBothSizes(MainWindow& window, const QString& name) {
    for (const QSize size : {QSize(1072, 732), QSize(1920, 1080)}) {
        window.resize(size);
        auto* display = window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
        const uint32_t painted = display->PaintedFrameCount();
        if (window.IsConnected())
            QTest::qWaitFor([&] { return display->PaintedFrameCount() >= painted + 2; }, 10000);
        else
            QCoreApplication::processEvents();
        uitest::SaveScreenshot(&window,
                               QString("%1-%2x%3").arg(name).arg(size.width()).arg(size.height()));
    }
}

// The row whose "Ip Address" cell shows `address`, or -1.
inline int RowOf(MainWindow& window, const QString& address) {
    QTableWidget* table = Table(window);
    for (int row = 0; row < table->rowCount(); ++row)
        if (table->item(row, 2) && table->item(row, 2)->text() == address)
            return row;
    return -1;
}

// The connection caption shown in the status bar.
inline QString ConnectionCaption(MainWindow& window) {
    const QList<QLabel*> labels = window.statusBar()->findChildren<QLabel*>();
    for (QLabel* label : labels)
        if (label->text() == "Connected" || label->text() == "Not Connected")
            return label->text();
    return QString();
}

// The editor widget of the first tree row named `displayName`, or null.
inline QWidget* EditorOf(MainWindow& window, const QString& displayName) {
    QTreeWidget* tree = Tree(window);
    const QList<QTreeWidgetItem*> items =
        tree->findItems(displayName, Qt::MatchExactly | Qt::MatchRecursive, 0);
    return items.isEmpty() ? nullptr : tree->itemWidget(items.first(), 1);
}

// How many of the 25 camera-switched widgets and actions are enabled.
inline int EnabledSwitchedCount(MainWindow& window) {
    int enabled = 0;
    for (const QString& name : uitest::CameraSwitchedNames()) {
        if (auto* widget = window.findChild<QWidget*>(name))
            enabled += widget->isEnabled() ? 1 : 0;
        else if (auto* action = window.findChild<QAction*>(name))
            enabled += action->isEnabled() ? 1 : 0;
    }
    return enabled;
}

} // namespace e2e
