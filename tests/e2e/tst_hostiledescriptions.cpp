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

constexpr int kDiscoveryWaitMs = 20000;

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

    // A window that has connected to `sim`; `connectMs` is how long the click took to give a
    // connected window with its tree.
    std::unique_ptr<MainWindow> ConnectedWindow(qint64* connectMs) {
        auto window =
            std::make_unique<MainWindow>(nullptr, WriteSettings(m_dir.filePath("settings.ini")));
        window->resize(1600, 1000);
        if (!QTest::qWaitForWindowExposed(window.get()))
            return nullptr;
        if (!QTest::qWaitFor([&] { return Table(*window)->rowCount() == 1; }, kDiscoveryWaitMs))
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

    QString Describe(hostiledescription::Kind kind, const QString& name) {
        const QString path = m_dir.filePath(name);
        QString error;
        if (!hostiledescription::Write(kind, path, &error))
            qWarning("%s", qPrintable(error));
        return path;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void endlessReadsLeaveTheOtherFeaturesInBoundedTime() {
        SimulatorProcess sim;
        QVERIFY(sim.startCamsim({"--address", "127.0.21.1", "--description",
                                 Describe(hostiledescription::Kind::EndlessReads, "endless.xml")}));
        qint64 ms = 0;
        auto window = ConnectedWindow(&ms);
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
        QVERIFY(sim.startCamsim({"--address", "127.0.21.2", "--description",
                                 Describe(hostiledescription::Kind::CategoryCycles, "loop.xml")}));
        qint64 ms = 0;
        auto window = ConnectedWindow(&ms);
        QVERIFY(window);
        // Each category has its row where it is listed, and is entered once on each path.
        QCOMPARE(RowsNamed(*window, "Loop"), 2);
        QCOMPARE(RowsNamed(*window, "Outer"), 2);
        QCOMPARE(RowsNamed(*window, "Inner"), 1);
        QVERIFY(EditorOf(*window, "Width"));
        QVERIFY(window->IsConnected());
    }

    void aTypeThatCannotBeReadKeepsTheTreeBuiltBeforeIt() {
        SimulatorProcess sim;
        QVERIFY(sim.startCamsim({"--address", "127.0.21.3", "--description",
                                 Describe(hostiledescription::Kind::TypeReadFails, "type.xml")}));
        qint64 ms = 0;
        auto window = ConnectedWindow(&ms);
        QVERIFY(window);
        // The category holding the failing feature goes; the rest of the tree stays.
        QCOMPARE(RowsNamed(*window, "Broken"), 0);
        QVERIFY(EditorOf(*window, "Width"));
        QVERIFY(EditorOf(*window, "Pixel Format"));
    }
};

QTEST_MAIN(TestHostileDescriptions)
#include "tst_hostiledescriptions.moc"
