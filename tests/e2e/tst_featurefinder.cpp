// The feature tree as a user searches it: tool tips that explain every row, the filter field
// and the visibility choice above the tree, on the simulator's description and on Aravis' fake
// camera description served by the simulator.
#include "uitesthelpers.h"
#include "windowdriver.h"

#include <aravisfeaturefacts.h>
#include <featuredescriptions.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <featuretreefinder.h>
#include <korvatincameraviewlane.h>

#include <QComboBox>
#include <QHelpEvent>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>
#include <QToolTip>

#include <functional>

using namespace e2e;

namespace {

void Walk(QTreeWidgetItem* item, const std::function<void(QTreeWidgetItem*)>& visit) {
    visit(item);
    for (int i = 0; i < item->childCount(); ++i)
        Walk(item->child(i), visit);
}

QString NameOf(QTreeWidgetItem* item) {
    return item->data(0, CFeatureTreeFinder::FeatureNameRole).toString();
}

// Asks the tree for `item`'s tool tip as the pointer resting on its name does.
QString HoverToolTip(QTreeWidget* tree, QTreeWidgetItem* item, int column = 0) {
    tree->scrollToItem(item);
    const QPoint pos =
        tree->visualItemRect(item).topLeft() + QPoint(tree->columnViewportPosition(column) + 4, 4);
    QHelpEvent event(QEvent::ToolTip, pos, tree->viewport()->mapToGlobal(pos));
    QApplication::sendEvent(tree->viewport(), &event);
    return item->toolTip(column);
}

// Every help line "Label: text" of a tool tip.
QMap<QString, QString> FieldsOf(const QString& tip) {
    QMap<QString, QString> fields;
    for (const QString& line : tip.split('\n')) {
        const qsizetype colon = line.indexOf(": ");
        if (colon > 0)
            fields.insert(line.left(colon), line.mid(colon + 2));
    }
    return fields;
}

bool ShownWithItsPath(QTreeWidgetItem* item) {
    for (; item; item = item->parent())
        if (item->isHidden())
            return false;
    return true;
}

QByteArray ReadFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestFeatureFinder : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    std::unique_ptr<MainWindow> Connect() {
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), 1, 1400, 1000);
        if (!window || !ConnectFirstRow(*window))
            return nullptr;
        return window;
    }

    // Checks every row's tool tip against the description's own texts; returns how many rows
    // carried a text of the description.
    int CheckToolTips(MainWindow& window, const QMap<QString, featuredescriptions::Feature>& xml) {
        QTreeWidget* tree = Tree(window);
        int described = 0;
        Walk(tree->topLevelItem(0), [&](QTreeWidgetItem* item) {
            const QString name = NameOf(item);
            const auto fields = FieldsOf(HoverToolTip(tree, item));
            if (fields.value("Name") != name)
                QTest::qFail(qPrintable("no help for " + name), __FILE__, __LINE__);
            const featuredescriptions::Feature expected = xml.value(name);
            if (fields.value("Visibility") != expected.visibility)
                QTest::qFail(qPrintable(name + " visibility " + fields.value("Visibility")),
                             __FILE__, __LINE__);
            if (!expected.toolTip.isEmpty() && fields.value("Tool tip") != expected.toolTip)
                QTest::qFail(qPrintable(name + " tool tip " + fields.value("Tool tip")), __FILE__,
                             __LINE__);
            if (!expected.description.isEmpty() && expected.description != expected.toolTip &&
                fields.value("Description") != expected.description)
                QTest::qFail(qPrintable(name + " description"), __FILE__, __LINE__);
            if (!expected.toolTip.isEmpty() || !expected.description.isEmpty())
                ++described;
        });
        return described;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
    }

    void everyRowExplainsItselfInItsToolTip() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.20.21"}), qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        const auto xml = featuredescriptions::Parse(
            ReadFile(TestNetwork::sourceDir() + "/camsim/korvatin-camsim.xml"));
        const int described = CheckToolTips(*window, xml);
        QVERIFY(!QTest::currentTestFailed());
        QVERIFY2(described > 60, qPrintable(QString::number(described)));

        QTreeWidget* tree = Tree(*window);
        auto rowOf = [&](const QString& name) {
            QTreeWidgetItem* found = nullptr;
            Walk(tree->topLevelItem(0), [&](QTreeWidgetItem* item) {
                if (!found && NameOf(item) == name)
                    found = item;
            });
            return found;
        };
        // Addresses in their own forms, ranges with increment and unit.
        QTreeWidgetItem* ip = rowOf("GevCurrentIPAddress");
        QVERIFY(ip);
        QCOMPARE(FieldsOf(HoverToolTip(tree, ip)).value("Address"), QString("127.0.20.21"));
        QTreeWidgetItem* mac = rowOf("GevMACAddress");
        QVERIFY(mac);
        QVERIFY(QRegularExpression("^([0-9a-f]{2}:){5}[0-9a-f]{2}$")
                    .match(FieldsOf(HoverToolTip(tree, mac)).value("Address"))
                    .hasMatch());
        QTreeWidgetItem* width = rowOf("Width");
        QVERIFY(width);
        const auto widthFields = FieldsOf(HoverToolTip(tree, width));
        QCOMPARE(widthFields.value("Increment"), QString("4"));
        QVERIFY(widthFields.value("Range").startsWith("16 .. "));
        QTreeWidgetItem* temperature = rowOf("DeviceTemperature");
        QVERIFY(temperature);
        QCOMPARE(FieldsOf(HoverToolTip(tree, temperature)).value("Unit"), QString("C"));

        // The pointer over a row's editor brings the same help, and it is shown.
        const QString tip = HoverToolTip(tree, width, 1);
        QVERIFY(tip.startsWith("Name: Width\n"));
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), tip);
        uitest::SaveScreenshot(window.get(), "featurefinder-tooltip");
    }

    void aVendorDescriptionExplainsItselfInTheToolTips() {
        const QByteArray xml = aravisfacts::FakeCameraXml();
        const QString path = m_dir.filePath("aravis-fake.xml");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(xml) == xml.size());
        file.close();
        // Loaded into the connected window as Load XML File does: the tree is the description's.
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.20.22"}), qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        QString error;
        try {
            window->Session()->CreateGeniCamTreeFromFile(path.toLocal8Bit().constData());
            window->LoadGENiCAMTree();
        } catch (const std::exception& e) {
            error = e.what();
        }
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QVERIFY(Tree(*window)->topLevelItem(0)->childCount() > 0);
        const int described = CheckToolTips(*window, featuredescriptions::Parse(xml));
        QVERIFY(!QTest::currentTestFailed());
        QVERIFY2(described >= 10, qPrintable(QString::number(described)));
    }

    void filterShowsMatchingFeaturesWithTheirCategories() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.20.23"}), qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        QTreeWidget* tree = Tree(*window);
        auto* filter = window->findChild<QLineEdit*>("lineEdit_featureFilter");
        QVERIFY(filter);
        QVERIFY(filter->isVisible());
        // Above the tree.
        QVERIFY(filter->mapTo(window.get(), QPoint(0, 0)).y() <
                tree->mapTo(window.get(), QPoint(0, 0)).y());

        int rows = 0;
        Walk(tree->topLevelItem(0), [&](QTreeWidgetItem*) { ++rows; });
        for (const QString text : {"offset", "exposure"}) {
            filter->clear();
            filter->setFocus();
            QTest::keyClicks(filter, text);
            int matches = 0;
            Walk(tree->topLevelItem(0), [&](QTreeWidgetItem* item) {
                if (item == tree->topLevelItem(0))
                    return;
                const bool match = item->text(0).contains(text, Qt::CaseInsensitive) ||
                                   NameOf(item).contains(text, Qt::CaseInsensitive);
                if (item->childCount() == 0) {
                    // A feature is shown exactly when it matches, and then with its categories.
                    QCOMPARE(ShownWithItsPath(item), match);
                    matches += match ? 1 : 0;
                } else if (!item->isHidden() && !match) {
                    // A category is shown only on the way to a match.
                    bool leads = false;
                    Walk(item, [&](QTreeWidgetItem* below) {
                        leads = leads ||
                                (below != item && below->childCount() == 0 && !below->isHidden());
                    });
                    QVERIFY2(leads, qPrintable(item->text(0)));
                }
            });
            // OffsetX, OffsetY, AutoOffsetX, AutoOffsetY; Exposure.
            QVERIFY2(matches >= (text == "offset" ? 4 : 1), qPrintable(QString::number(matches)));
        }
        SaveAtBothSizes(*window, "featurefinder-filter-exposure");

        filter->clear();
        int shown = 0;
        Walk(tree->topLevelItem(0),
             [&](QTreeWidgetItem* item) { shown += item->isHidden() ? 0 : 1; });
        QCOMPARE(shown, rows);
    }

    void visibilityHidesFeaturesAboveTheLevel() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.20.24"}), qPrintable(sim.errorString()));
        auto window = Connect();
        QVERIFY(window);
        const auto xml = featuredescriptions::Parse(
            ReadFile(TestNetwork::sourceDir() + "/camsim/korvatin-camsim.xml"));
        QTreeWidget* tree = Tree(*window);
        auto* choice = window->findChild<QComboBox*>("comboBox_featureVisibility");
        QVERIFY(choice);
        // The default shows every feature, the invisible ones too.
        QCOMPARE(choice->currentText(), QString("All"));
        static const QStringList kLevels{"Beginner", "Expert", "Guru", "Invisible"};
        int previous = 0;
        for (int level = 0; level < 3; ++level) {
            choice->setCurrentIndex(level + 1);
            QCOMPARE(choice->currentText(), kLevels[level]);
            int shown = 0;
            Walk(tree->topLevelItem(0), [&](QTreeWidgetItem* item) {
                const int rank = int(kLevels.indexOf(xml.value(NameOf(item)).visibility));
                if (ShownWithItsPath(item)) {
                    ++shown;
                    QVERIFY2(rank <= level, qPrintable(NameOf(item)));
                } else if (item->parent() && ShownWithItsPath(item->parent())) {
                    QVERIFY2(rank > level, qPrintable(NameOf(item)));
                }
            });
            QVERIFY(shown > previous);
            previous = shown;
            if (level == 0)
                SaveAtBothSizes(*window, "featurefinder-visibility-beginner");
        }
        choice->setCurrentIndex(0);
        Walk(tree->topLevelItem(0), [&](QTreeWidgetItem* item) { QVERIFY(!item->isHidden()); });
    }
};

QTEST_MAIN(TestFeatureFinder)
#include "tst_featurefinder.moc"
