// What the connected window's feature editors show can be read: string editors draw no empty box
// beside their text field.
#include "uitesthelpers.h"
#include "windowdriver.h"

#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace e2e;

class TestWindowReadability : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<SimulatorProcess> m_sim;
    std::unique_ptr<MainWindow> m_window;

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
        if (!uitest::HasScreen())
            QSKIP("no X server: the window cannot be shown");
        m_sim = std::make_unique<SimulatorProcess>();
        QVERIFY2(m_sim->startCamsim({"--address", "127.0.33.1"}), qPrintable(m_sim->errorString()));
        m_window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), 1, 1072, 732);
        QVERIFY(m_window);
        QVERIFY(ConnectFirstRow(*m_window));
    }

    void cleanupTestCase() {
        m_window.reset();
        m_sim.reset();
    }

    void stringEditorsShowNoEmptyBoxBesideTheirText() {
        int strings = 0;
        for (const QString& name : {QString("Vendor Name"), QString("Device User ID")}) {
            QWidget* editor = EditorOf(*m_window, name);
            QVERIFY2(editor, qPrintable(name));
            auto* field = editor->findChild<QLineEdit*>("lineEdit");
            QVERIFY(field);
            // The editor ends where its field ends.
            QVERIFY2(editor->width() <= field->geometry().right() + 2,
                     qPrintable(QString("%1: editor %2 wide, its field ends at %3")
                                    .arg(name)
                                    .arg(editor->width())
                                    .arg(field->geometry().right())));
            ++strings;
        }
        QCOMPARE(strings, 2);
    }
};

QTEST_MAIN(TestWindowReadability)
#include "tst_windowreadability.moc"
