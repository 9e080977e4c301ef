// Descriptions that misbehave, served by the simulator and shown by the window: reads that
// would never end, categories that list themselves, a type that cannot be read. The tree is
// built in bounded time, nothing crashes, and the rest of the features are shown.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <hostiledescription.h>
#include <korvatincameraviewlane.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>

#include <memory>

using namespace e2e;

namespace {

// Rows of the feature tree whose name is `name`.
int RowsNamed(MainWindow& window, const QString& name) {
    int rows = 0;
    for (QTreeWidgetItemIterator it(window.findChild<QTreeWidget*>("treeWidgetGenICam")); *it; ++it)
        rows += (*it)->text(0) == name ? 1 : 0;
    return rows;
}

} // namespace

class TestHostileDescriptions : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // Serves the simulator's description with the nodes of `kind` from a simulator at
    // `address` and connects a window to it; `connectMs` is how long the click took to give a
    // connected window with its tree. Null when any step fails.
    std::unique_ptr<MainWindow> ConnectedWindow(SimulatorProcess& sim,
                                                hostiledescription::Kind kind,
                                                const QString& address, qint64* connectMs) {
        const QString description = m_dir.filePath(address + ".xml");
        QString error;
        if (!hostiledescription::Write(kind, description, &error) ||
            !sim.startCamsim({"--address", address, "--description", description})) {
            qWarning("no simulator: %s%s", qPrintable(error), qPrintable(sim.errorString()));
            return nullptr;
        }
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), 1);
        if (!window)
            return nullptr;
        MessageBoxWatcher boxes;
        QElapsedTimer clock;
        clock.start();
        ClickRow(*window, 0);
        if (!QTest::qWaitFor([&] { return window->IsConnected() || !boxes.texts.isEmpty(); },
                             60000) ||
            !boxes.texts.isEmpty()) {
            qWarning("not connected: %s", qPrintable(boxes.texts.join(" | ")));
            return nullptr;
        }
        *connectMs = clock.elapsed();
        return window;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void endlessReadsLeaveTheOtherFeaturesInBoundedTime() {
        SimulatorProcess sim;
        qint64 ms = 0;
        auto window =
            ConnectedWindow(sim, hostiledescription::Kind::EndlessReads, "127.0.21.1", &ms);
        QVERIFY(window);
        qInfo("connected with the tree built in %lld ms", ms);
        QVERIFY2(ms < 5000, qPrintable(QString::number(ms)));
        // The two strings that cannot be read have no row; everything else is there.
        QCOMPARE(RowsNamed(*window, "HostileText"), 0);
        QCOMPARE(RowsNamed(*window, "HugeText"), 0);
        QVERIFY(EditorOf(*window, "Width"));
        QVERIFY(EditorOf(*window, "Pixel Format"));
    }

    void categoriesThatListThemselvesAreShownOnce() {
        SimulatorProcess sim;
        qint64 ms = 0;
        auto window =
            ConnectedWindow(sim, hostiledescription::Kind::CategoryCycles, "127.0.21.2", &ms);
        QVERIFY(window);
        // Each category has its row where it is listed, and is entered once on each path.
        QCOMPARE(RowsNamed(*window, "Loop"), 2);
        QCOMPARE(RowsNamed(*window, "Outer"), 2);
        QCOMPARE(RowsNamed(*window, "Inner"), 1);
        QVERIFY(EditorOf(*window, "Width"));
        QVERIFY(window->IsConnected());
        SaveAtBothSizes(*window, "mainwindow-category-cycles");
    }

    void aTypeThatCannotBeReadKeepsTheTreeBuiltBeforeIt() {
        SimulatorProcess sim;
        qint64 ms = 0;
        auto window =
            ConnectedWindow(sim, hostiledescription::Kind::TypeReadFails, "127.0.21.3", &ms);
        QVERIFY(window);
        // The category holding the failing feature goes; the rest of the tree stays.
        QCOMPARE(RowsNamed(*window, "Broken"), 0);
        QVERIFY(EditorOf(*window, "Width"));
        QVERIFY(EditorOf(*window, "Pixel Format"));
    }
};

QTEST_MAIN(TestHostileDescriptions)
#include "tst_hostiledescriptions.moc"
