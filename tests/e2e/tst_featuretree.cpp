// The main window's feature tree built from real cameras: rows and editors per node kind, the
// callbacks and the polling list, names cut to their buffers, errors that remove their top-level
// category, polling that starts, refreshes and stops.
#include "uitesthelpers.h"
#include "windowdriver.h"

#include <bulkdescription.h>
#include <genicamframe.h>
#include <korvatincameraviewlane.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <korvatin/korvatinexception.h>

#include <QCheckBox>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

using namespace e2e;

namespace {

// Every row under `item`, depth first.
void Walk(QTreeWidgetItem* item, const std::function<void(QTreeWidgetItem*)>& visit) {
    visit(item);
    for (int i = 0; i < item->childCount(); ++i)
        Walk(item->child(i), visit);
}

// The simulator's description with `rootFeatures` added to its root category and `nodes`
// added to the document.
bool WriteExtendedDescription(const QString& path, const QString& rootFeatures,
                              const QString& nodes) {
    QFile in(bulkdescription::BuiltInPath());
    if (!in.open(QIODevice::ReadOnly))
        return false;
    QString xml = QString::fromUtf8(in.readAll());
    const QString rootEnd = "<pFeature>SimulationControl</pFeature>\n";
    if (!xml.contains(rootEnd))
        return false;
    xml.replace(rootEnd, rootEnd + rootFeatures);
    xml.replace("</RegisterDescription>", nodes + "</RegisterDescription>");
    QFile out(path);
    return out.open(QIODevice::WriteOnly) && out.write(xml.toUtf8()) > 0;
}

// An integer feature on a register of the simulator's file-access buffer (plain memory).
QString BufferInteger(const QString& name, unsigned offset, const QString& extra = QString()) {
    return QString("  <Integer Name=\"%1\">\n    <DisplayName>%1</DisplayName>\n"
                   "    <pValue>%1Reg</pValue>\n  </Integer>\n"
                   "  <IntReg Name=\"%1Reg\">\n    <Address>0x%2</Address>\n%3"
                   "    <Length>4</Length>\n    <AccessMode>RW</AccessMode>\n"
                   "    <pPort>Device</pPort>\n    <Sign>Unsigned</Sign>\n"
                   "    <Endianess>BigEndian</Endianess>\n  </IntReg>\n")
        .arg(name)
        .arg(0x11000 + offset, 0, 16)
        .arg(extra);
}

} // namespace

class TestFeatureTree : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // A window connected to the only camera of the table.
    std::unique_ptr<MainWindow> Connect(const QByteArray& extraHost = QByteArray()) {
        auto window = std::make_unique<MainWindow>(
            nullptr, WriteSettings(m_dir.filePath("settings.ini"), extraHost));
        window->resize(1400, 1000);
        if (!QTest::qWaitForWindowExposed(window.get()))
            return nullptr;
        if (!QTest::qWaitFor([&] { return Table(*window)->rowCount() == 1; }, 20000))
            return nullptr;
        ClickRow(*window, 0);
        if (!window->IsConnected())
            return nullptr;
        return window;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
    }

    void simulatorTreeHasARowPerFeatureAndEditorsByKind() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.8.10"}), qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        // Every feature of the simulator's description can be read: the build throws nothing.
        QString buildError;
        try {
            window->LoadGENiCAMTree();
        } catch (const std::exception& e) {
            buildError = e.what();
        }
        QVERIFY2(buildError.isEmpty(), qPrintable(buildError));
        QTreeWidget* tree = Tree(*window);
        QCOMPARE(tree->topLevelItemCount(), 1);
        QTreeWidgetItem* root = tree->topLevelItem(0);
        QCOMPARE(root->text(0), QString("Root"));
        QCOMPARE(root->childCount(), 9);
        QCOMPARE(root->child(0)->text(0), QString("Device Control"));

        int editors = 0, followed = 0;
        QStringList names;
        Walk(root, [&](QTreeWidgetItem* item) {
            names << item->text(0);
            if (auto* editor = qobject_cast<CGENiCAMFrame*>(tree->itemWidget(item, 1))) {
                ++editors;
                const QrnParamDataType type = editor->Node().DataType();
                if (type == QRN_PARAM_UINT32 || type == QRN_PARAM_INT32 ||
                    type == QRN_PARAM_FLOAT || type == QRN_PARAM_STRING)
                    ++followed;
                // A read-only feature's editor is disabled as a whole.
                QCOMPARE(editor->isEnabled(),
                         editor->Node().AccessMode() != CKorvatinGenICamNodeT::RO);
            }
        });
        QVERIFY(editors > 60);
        QCOMPARE(window->NodeCallbacks().size(), followed);
        // Enumeration entries never get a row of their own.
        QVERIFY(names.contains("Pixel Format") || names.contains("PixelFormat"));
        QVERIFY(!names.contains("Mono8"));
        QVERIFY(!names.contains("Continuous"));
        // A display name longer than 63 characters is cut at 63.
        const QString longName = "Focus position of the simulated motorised lens, in steps from "
                                 "the mechanical centre of travel";
        QVERIFY(names.contains(longName.left(63)));
        QVERIFY(!names.contains(longName));

        // The features whose values are not cached are polled: the temperature and the frame
        // counter among them, nothing cached.
        QStringList polled;
        for (CGENiCAMFrame* editor : window->ReadonlyPollingFrames()) {
            QVERIFY(!editor->Node().IsCachable());
            char name[64] = {};
            editor->Node().Name(name, sizeof name, nullptr);
            polled << name;
        }
        QVERIFY2(polled.contains("DeviceTemperature"), qPrintable(polled.join(',')));
        QVERIFY2(polled.contains("FrameCounter"), qPrintable(polled.join(',')));
        QVERIFY(!polled.contains("Width"));
        uitest::SaveScreenshot(window.get(), "featuretree_simulator");
    }

    void pollingRunsOnlyWhenCheckedAndRefreshesNonCachedFeatures() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.8.20"}), qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        auto* check = window->findChild<QCheckBox*>("checkBox_readonly_nodes_polling");
        // The window starts with polling unchecked: connected, but the timer stays stopped.
        QVERIFY(!check->isChecked());
        QVERIFY(!window->ReadonlyNodesPollingTimer()->isActive());
        check->setChecked(true);
        QVERIFY(window->ReadonlyNodesPollingTimer()->isActive());

        // The frame counter counts sent frames by itself; polling shows it growing.
        auto* counter = EditorOf(*window, "Frame Counter");
        QVERIFY(counter);
        auto* text = counter->findChild<QLineEdit*>("lineEdit");
        QVERIFY(text);
        const qlonglong first = text->text().toLongLong();
        QTRY_VERIFY_WITH_TIMEOUT(text->text().toLongLong() > first + 5, 10000);
        check->setChecked(false);
        QVERIFY(!window->ReadonlyNodesPollingTimer()->isActive());

        // The next connection starts polling at once when the box is checked.
        check->setChecked(true);
        ClickRow(*window, 0);
        QVERIFY(!window->IsConnected());
        QVERIFY(!window->ReadonlyNodesPollingTimer()->isActive());
        QVERIFY(window->ReadonlyPollingFrames().isEmpty());
        ClickRow(*window, 0);
        QVERIFY(window->IsConnected());
        QVERIFY(window->ReadonlyNodesPollingTimer()->isActive());
    }

    void failingFeatureRemovesItsTopLevelCategoryAndPollingErrorStopsSilently() {
        // "Broken": a good feature, then one on an address the camera does not have, then one
        // more. "Selected": polled through an index register, readable until the index moves
        // it off the buffer.
        const QString broken =
            "  <Category Name=\"Broken\">\n    <DisplayName>Broken</DisplayName>\n"
            "    <pFeature>BrokenGood</pFeature>\n    <pFeature>BrokenBad</pFeature>\n"
            "    <pFeature>BrokenLater</pFeature>\n  </Category>\n" +
            BufferInteger("BrokenGood", 0x100) + BufferInteger("BrokenLater", 0x104) +
            QString("  <Integer Name=\"BrokenBad\">\n    <DisplayName>BrokenBad</DisplayName>\n"
                    "    <pValue>BrokenBadReg</pValue>\n  </Integer>\n"
                    "  <IntReg Name=\"BrokenBadReg\">\n    <Address>0x7fff0000</Address>\n"
                    "    <Length>4</Length>\n    <AccessMode>RW</AccessMode>\n"
                    "    <pPort>Device</pPort>\n    <Sign>Unsigned</Sign>\n"
                    "    <Endianess>BigEndian</Endianess>\n  </IntReg>\n");
        const QString polled =
            "  <Category Name=\"Polled\">\n    <DisplayName>Polled</DisplayName>\n"
            "    <pFeature>PollIndex</pFeature>\n    <pFeature>PollValue</pFeature>\n"
            "  </Category>\n" +
            BufferInteger("PollIndex", 0x200) +
            BufferInteger("PollValue", 0x204,
                          "    <pIndex Offset=\"0x1000000\">PollIndex</pIndex>\n"
                          "    <Cachable>NoCache</Cachable>\n");
        const QString path = m_dir.filePath("broken.xml");
        QVERIFY(WriteExtendedDescription(
            path, "    <pFeature>Broken</pFeature>\n    <pFeature>Polled</pFeature>\n",
            broken + polled));

        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.8.30", "--description", path}),
                 qPrintable(sim.errorString()));
        MessageBoxWatcher boxes;
        auto window = Connect();
        QVERIFY(window);
        QTreeWidgetItem* root = Tree(*window)->topLevelItem(0);
        QStringList top;
        for (int i = 0; i < root->childCount(); ++i)
            top << root->child(i)->text(0);
        // The whole top-level category of the failing feature is gone, the others are built,
        // and nothing was shown: the connection carries on with the tree it has.
        QVERIFY2(!top.contains("Broken"), qPrintable(top.join(',')));
        QVERIFY(top.contains("Polled"));
        QVERIFY(top.contains("Image Format Control"));
        QCOMPARE(root->childCount(), 10);
        QVERIFY(!EditorOf(*window, "BrokenGood"));
        QVERIFY(boxes.texts.isEmpty());
        QVERIFY(window->IsConnected());
        // Building again throws the error after the tree is back and expanded.
        bool thrown = false;
        try {
            window->LoadGENiCAMTree();
        } catch (const std::exception& e) {
            thrown = QString(e.what()).size() > 0;
        }
        QVERIFY(thrown);
        QVERIFY(Tree(*window)->topLevelItem(0)->isExpanded());

        // Polling: on, until the polled feature cannot be read any more.
        auto* check = window->findChild<QCheckBox*>("checkBox_readonly_nodes_polling");
        check->setChecked(true);
        QVERIFY(window->ReadonlyNodesPollingTimer()->isActive());
        window->Session()->GetNodeByName("PollIndex").SetUInt32(1);
        QTRY_VERIFY_WITH_TIMEOUT(!window->ReadonlyNodesPollingTimer()->isActive(), 10000);
        QTest::qWait(1500);
        QVERIFY(boxes.texts.isEmpty());
        QVERIFY(window->IsConnected());
    }

    void namesAreCutToTheirBuffersAndEntryOnlyCategoriesStayEmpty() {
        // A root display name of 40 characters, and a category whose features are all
        // enumeration entries.
        const QString path = m_dir.filePath("names.xml");
        const QString entries = "  <Category Name=\"OnlyEntries\">\n"
                                "    <DisplayName>Only Entries</DisplayName>\n"
                                "    <pFeature>Mono8</pFeature>\n    <pFeature>Mono10</pFeature>\n"
                                "  </Category>\n";
        QVERIFY(WriteExtendedDescription(path, "    <pFeature>OnlyEntries</pFeature>\n", entries));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QString xml = QString::fromUtf8(file.readAll());
        file.close();
        const QString longRoot = "Root of a camera with a long display name";
        QVERIFY(xml.contains("<DisplayName>Root</DisplayName>"));
        xml.replace("<DisplayName>Root</DisplayName>",
                    "<DisplayName>" + longRoot + "</DisplayName>");
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(xml.toUtf8());
        file.close();

        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.8.50", "--description", path}),
                 qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        QTreeWidgetItem* root = Tree(*window)->topLevelItem(0);
        QCOMPARE(root->text(0), longRoot.left(31));
        QTreeWidgetItem* onlyEntries = nullptr;
        for (int i = 0; i < root->childCount(); ++i)
            if (root->child(i)->text(0) == "Only Entries")
                onlyEntries = root->child(i);
        QVERIFY(onlyEntries);
        QCOMPARE(onlyEntries->childCount(), 0);
        QVERIFY(!Tree(*window)->itemWidget(onlyEntries, 1));
    }

    void twoEditorErrorsGiveTwoMessages() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.8.60"}), qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        MessageBoxWatcher boxes;
        // Trigger Software is not available while TriggerMode is Off: each click is refused.
        QWidget* trigger = EditorOf(*window, "Trigger Software");
        QVERIFY(trigger);
        auto* button = trigger->findChild<QPushButton*>("pushButton");
        QVERIFY(button);
        QCOMPARE(button->text(), QString("Trigger Software"));
        button->click();
        button->click();
        // Queued: nothing is shown inside the click.
        QVERIFY(boxes.texts.isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts.size(), 2, 5000);
        for (const QString& text : boxes.texts)
            QVERIFY2(text.startsWith("Trigger Software : "), qPrintable(text));
        // The control channel still answers after the clears.
        QVERIFY(window->Session()->GetNodeByName("Width").GetUInt32() > 0);
        QVERIFY(window->IsConnected());
    }

    void aravisSimulatorTreeBuildsCompletelyAndStreams() {
        // Another maker's description: Aravis' own simulated camera.
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.8.70", "TREEFAKE"), qPrintable(fake.errorString()));
        MessageBoxWatcher boxes;
        auto window = Connect();
        QVERIFY2(window, qPrintable(boxes.texts.join("; ")));
        QString buildError;
        try {
            window->LoadGENiCAMTree();
        } catch (const std::exception& e) {
            buildError = e.what();
        }
        QVERIFY2(buildError.isEmpty(), qPrintable(buildError));
        QTreeWidget* tree = Tree(*window);
        int editors = 0;
        Walk(tree->topLevelItem(0),
             [&](QTreeWidgetItem* item) { editors += tree->itemWidget(item, 1) ? 1 : 0; });
        QVERIFY2(editors > 20, qPrintable(QString::number(editors)));
        QVERIFY(EditorOf(*window, "Width") || EditorOf(*window, "Image width"));
        auto* display = window->findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
        QTRY_VERIFY_WITH_TIMEOUT(display->PaintedFrameCount() > 2, 20000);
        QVERIFY(boxes.texts.isEmpty());
        uitest::SaveScreenshot(window.get(), "featuretree_aravis_fake");
    }

    void rootThatIsNotACategoryLeavesTheTreeAsItWas() {
        // The simulator's description with its root category renamed and an integer "Root".
        QFile in(bulkdescription::BuiltInPath());
        QVERIFY(in.open(QIODevice::ReadOnly));
        QString xml = QString::fromUtf8(in.readAll());
        QVERIFY(xml.contains("<Category Name=\"Root\" NameSpace=\"Standard\">"));
        xml.replace("<Category Name=\"Root\" NameSpace=\"Standard\">",
                    "<Integer Name=\"Root\">\n    <Value>7</Value>\n  </Integer>\n"
                    "  <Category Name=\"FormerRoot\">");
        const QString path = m_dir.filePath("integer-root.xml");
        QFile out(path);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(xml.toUtf8());
        out.close();

        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.8.80", "--description", path}),
                 qPrintable(sim.errorString()));
        auto window =
            std::make_unique<MainWindow>(nullptr, WriteSettings(m_dir.filePath("settings.ini")));
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QTRY_COMPARE_WITH_TIMEOUT(Table(*window)->rowCount(), 1, 20000);
        // What the tree shows before this first connection.
        auto* marker = new QTreeWidgetItem(QStringList{"shown before"});
        Tree(*window)->addTopLevelItem(marker);
        MessageBoxWatcher boxes;
        ClickRow(*window, 0);
        QVERIFY2(window->IsConnected(), qPrintable(boxes.texts.join("; ")));
        QCOMPARE(Tree(*window)->topLevelItemCount(), 1);
        QCOMPARE(Tree(*window)->topLevelItem(0), marker);
        QVERIFY(window->NodeCallbacks().isEmpty());
        QVERIFY(window->ReadonlyPollingFrames().isEmpty());
        QVERIFY(boxes.texts.isEmpty());
    }

    void treeOfOverAThousandFeaturesBuildsCompletely() {
        const QString path = m_dir.filePath("bulk.xml");
        QString error;
        bulkdescription::Counts counts;
        QVERIFY2(
            bulkdescription::Write(bulkdescription::BuiltInPath(), path, 1000, &error, &counts),
            qPrintable(error));
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.8.40", "--description", path}),
                 qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        QTreeWidgetItem* bulk = nullptr;
        QTreeWidgetItem* root = Tree(*window)->topLevelItem(0);
        for (int i = 0; i < root->childCount(); ++i)
            if (root->child(i)->text(0) == "Bulk Features")
                bulk = root->child(i);
        QVERIFY(bulk);
        QCOMPARE(bulk->childCount(), counts.groups);
        int rows = 0;
        Walk(bulk, [&](QTreeWidgetItem* item) {
            if (Tree(*window)->itemWidget(item, 1))
                ++rows;
        });
        QCOMPARE(rows, 1000);
        QElapsedTimer clock;
        clock.start();
        window->LoadGENiCAMTree();
        qInfo("rebuilding the tree of %d rows took %lld ms", rows, clock.elapsed());
    }
};

QTEST_MAIN(TestFeatureTree)
#include "tst_featuretree.moc"
