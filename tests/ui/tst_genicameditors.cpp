// The feature editors on real nodes of korvatin-camsim: what each editor shows, what it writes
// (read back through the SDK), what it refuses, the texts of its errors and the node-change
// callback that refreshes it.
#include "simulatorprocess.h"
#include "testnetwork.h"
#include "uitesthelpers.h"

#include <genicambooleanframe.h>
#include <genicamcommandframe.h>
#include <genicamenumerationframe.h>
#include <genicamfloatframe.h>
#include <genicamframe.h>
#include <genicamsignedint32frame.h>
#include <genicamstringframe.h>
#include <genicamunsignedint32frame.h>
#include <korvatingenicamnodecallbackext.h>
#include <scaledoublevalidator.h>
#include <scaleintvalidator.h>

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatingenicamnodecallback.h>

#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionButton>
#include <QStyleOptionSlider>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QtTest>

#include <memory>

namespace {

// The simulator with its own description, and one serving the description written below.
constexpr const char* kBuiltInAddress = "127.0.40.1";
constexpr const char* kForeignAddress = "127.0.40.2";

const char* const kBlackText = "color: rgb(0, 0, 0);";
const char* const kRedText = "color: rgb(255, 0, 0);";

// A display name of 600 characters; messages carry its first 511.
QString LongDisplayName() {
    QString name = "Odd minimum ";
    while (name.size() < 600)
        name += QString::number(name.size() % 10);
    return name;
}

// Nodes the simulator's own description does not have: odd increments and ranges, unavailable
// and unimplemented integers, a long text, a value that stops fitting its type, a lock.
QByteArray ForeignDescription() {
    QByteArray xml =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<RegisterDescription ModelName=\"EditorCases\" VendorName=\"Korvatin\" "
        "StandardNameSpace=\"GEV\"\n"
        "    SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\"\n"
        "    MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\" ProductGuid=\"0\" "
        "VersionGuid=\"0\"\n"
        "    xmlns=\"http://www.genicam.org/GenApi/Version_1_1\">\n"
        "  <Category Name=\"Root\">\n"
        "    <pFeature>ZeroIncrement</pFeature>\n"
        "    <pFeature>Stepped</pFeature>\n"
        "    <pFeature>OddMinimum</pFeature>\n"
        "    <pFeature>FullRange</pFeature>\n"
        "    <pFeature>SmallFloat</pFeature>\n"
        "    <pFeature>Unavailable</pFeature>\n"
        "    <pFeature>Unimplemented</pFeature>\n"
        "    <pFeature>LongText</pFeature>\n"
        "    <pFeature>Source</pFeature>\n"
        "    <pFeature>Derived</pFeature>\n"
        "    <pFeature>LockableFlag</pFeature>\n"
        "    <pFeature>Lock</pFeature>\n"
        "    <pFeature>ModeSelect</pFeature>\n"
        "    <pFeature>WideSigned</pFeature>\n"
        "    <pFeature>WideUnit</pFeature>\n"
        "  </Category>\n"
        "  <Integer Name=\"ZeroIncrement\">\n"
        "    <DisplayName>Zero Increment</DisplayName>\n"
        "    <Value>3</Value><Min>0</Min><Max>10</Max><Inc>0</Inc>\n"
        "  </Integer>\n"
        "  <Integer Name=\"Stepped\">\n"
        "    <DisplayName>Stepped</DisplayName>\n"
        "    <Value>4</Value><Min>0</Min><Max>10</Max><Inc>2</Inc>\n"
        "  </Integer>\n"
        "  <Integer Name=\"OddMinimum\">\n"
        "    <DisplayName>@LONG@</DisplayName>\n"
        "    <Value>5</Value><Min>5</Min><Max>9</Max><Inc>2</Inc>\n"
        "  </Integer>\n"
        "  <Integer Name=\"FullRange\">\n"
        "    <DisplayName>Full Range</DisplayName>\n"
        "    <Value>10</Value><Min>0</Min><Max>4294967295</Max><Inc>2</Inc>\n"
        "  </Integer>\n"
        "  <Float Name=\"SmallFloat\">\n"
        "    <DisplayName>Small Float</DisplayName>\n"
        "    <Value>0.5</Value><Min>0.0</Min><Max>1.5</Max><Unit>V</Unit>\n"
        "  </Float>\n"
        "  <Integer Name=\"Zero\">\n"
        "    <Value>0</Value>\n"
        "  </Integer>\n"
        "  <Integer Name=\"Unavailable\">\n"
        "    <DisplayName>Unavailable</DisplayName>\n"
        "    <pIsAvailable>Zero</pIsAvailable>\n"
        "    <Value>4</Value><Min>0</Min><Max>10</Max>\n"
        "  </Integer>\n"
        "  <Integer Name=\"Unimplemented\">\n"
        "    <DisplayName>Unimplemented</DisplayName>\n"
        "    <pIsImplemented>Zero</pIsImplemented>\n"
        "    <Value>4</Value><Min>0</Min><Max>10</Max>\n"
        "  </Integer>\n"
        "  <StringReg Name=\"LongText\">\n"
        "    <DisplayName>Long Text</DisplayName>\n"
        "    <Address>0x40000000</Address>\n"
        "    <Length>256</Length>\n"
        "    <AccessMode>RW</AccessMode>\n"
        "    <pPort>Device</pPort>\n"
        "  </StringReg>\n"
        "  <Integer Name=\"Source\">\n"
        "    <DisplayName>Source</DisplayName>\n"
        "    <Value>0</Value><Min>0</Min><Max>100</Max>\n"
        "  </Integer>\n"
        "  <Integer Name=\"Derived\">\n"
        "    <DisplayName>Derived</DisplayName>\n"
        "    <pValue>DerivedCalc</pValue>\n"
        "    <Min>0</Min><Max>100</Max>\n"
        "  </Integer>\n"
        "  <IntSwissKnife Name=\"DerivedCalc\">\n"
        "    <pVariable Name=\"S\">Source</pVariable>\n"
        "    <Formula>10 - S</Formula>\n"
        "  </IntSwissKnife>\n"
        "  <Boolean Name=\"LockableFlag\">\n"
        "    <DisplayName>Lockable Flag</DisplayName>\n"
        "    <pIsLocked>Lock</pIsLocked>\n"
        "    <pValue>FlagValue</pValue>\n"
        "    <OnValue>1</OnValue>\n"
        "    <OffValue>0</OffValue>\n"
        "  </Boolean>\n"
        "  <Integer Name=\"FlagValue\">\n"
        "    <Value>0</Value><Min>0</Min><Max>1</Max>\n"
        "  </Integer>\n"
        "  <Integer Name=\"Lock\">\n"
        "    <DisplayName>Lock</DisplayName>\n"
        "    <Value>0</Value><Min>0</Min><Max>1</Max>\n"
        "  </Integer>\n"
        "  <Enumeration Name=\"ModeSelect\">\n"
        "    <DisplayName>Mode Select</DisplayName>\n"
        "    <EnumEntry Name=\"Alpha\"><Value>0</Value></EnumEntry>\n"
        "    <EnumEntry Name=\"Beta\"><Value>1</Value></EnumEntry>\n"
        "    <EnumEntry "
        "Name=\"Gamma\"><pIsAvailable>Zero</pIsAvailable><Value>2</Value></EnumEntry>\n"
        "    <pValue>ModeValue</pValue>\n"
        "  </Enumeration>\n"
        "  <Integer Name=\"ModeValue\">\n"
        "    <Value>0</Value><Min>0</Min><Max>2</Max>\n"
        "  </Integer>\n"
        "  <Integer Name=\"WideSigned\">\n"
        "    <DisplayName>Wide Signed</DisplayName>\n"
        "    <Value>-2000000000</Value><Min>-2147483648</Min><Max>2147483647</Max>\n"
        "  </Integer>\n"
        "  <Float Name=\"WideUnit\">\n"
        "    <DisplayName>Wide Unit</DisplayName>\n"
        "    <Value>123456</Value><Min>-1000000</Min><Max>1000000</Max>\n"
        "    <Unit>counts per second</Unit>\n"
        "  </Float>\n"
        "  <Port Name=\"Device\"/>\n"
        "</RegisterDescription>\n";
    xml.replace("@LONG@", LongDisplayName().toUtf8());
    return xml;
}

// Counts the SDK's notifications for one node: one per completed write of it (a refused write
// notifies nobody). Registered on a handle of its own, beside any editor's callback.
class WriteCounter : public CKorvatinGenICamNodeCallback {
public:
    explicit WriteCounter(CKorvatinGenICamNodeT node) : node_(node) {
        node_.RegisterCallBack(*this);
    }
    ~WriteCounter() override { node_.DeregisterCallBack(); }
    WriteCounter(const WriteCounter&) = delete;
    WriteCounter& operator=(const WriteCounter&) = delete;
    void NodeChanged() override { ++calls; }
    int calls = 0;

private:
    CKorvatinGenICamNodeT node_;
};

template <typename T> T* Child(QWidget* editor, const char* name) {
    T* child = editor->findChild<T*>(name);
    if (child == nullptr)
        qFatal("editor has no %s", name);
    return child;
}

// Where a user clicks a check box that has no text: on its indicator.
QPoint IndicatorCentre(QCheckBox* box) {
    QStyleOptionButton option;
    option.initFrom(box);
    return box->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, box).center();
}

QString ErrorText(const QSignalSpy& spy, int index = 0) {
    return spy.at(index).at(0).toString();
}

// The text of the exception `operation` throws.
template <typename Operation> QString ThrownText(Operation operation) {
    try {
        operation();
    } catch (const CKorvatinException& e) {
        return QString::fromUtf8(e.what());
    }
    return QString();
}

// An unsigned editor whose node reports an increment of 0. The SDK itself already reads an
// increment of 0 or less as 1, so only an editor that asks elsewhere can meet a 0.
class ZeroReportingEditor : public CGENiCAMUnsignedInt32Frame {
public:
    using CGENiCAMUnsignedInt32Frame::CGENiCAMUnsignedInt32Frame;
    int GetNodeInc() override { return 0; }
};

// The signatures of the meta-methods a class adds to its base, in order.
QStringList OwnMethods(const QMetaObject& meta) {
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods << QString::fromLatin1(meta.method(i).methodSignature());
    return methods;
}

// A window showing one editor, which it gives back when it closes, and a second line edit to
// move the focus to.
struct Host {
    QWidget window;
    QWidget* editor = nullptr;
    QLineEdit* elsewhere = nullptr;

    explicit Host(QWidget* shown) : editor(shown) {
        auto* layout = new QVBoxLayout(&window);
        layout->addWidget(editor);
        elsewhere = new QLineEdit(&window);
        layout->addWidget(elsewhere);
        window.show();
        window.activateWindow();
    }
    ~Host() { editor->setParent(nullptr); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
};

} // namespace

class TestGenicamEditors : public QObject {
    Q_OBJECT

private:
    SimulatorProcess builtIn_;
    SimulatorProcess foreign_;
    QTemporaryDir dir_;
    CKorvatinCamera camera_;         // korvatin-camsim's own description
    CKorvatinCamera foreign_camera_; // the description above

    template <typename Editor>
    std::unique_ptr<Editor> Built(CKorvatinCamera& camera, const char* name) {
        auto editor = std::make_unique<Editor>(camera.GetNodeByName(name));
        editor->InitFromNode();
        editor->UpdateFromNode();
        return editor;
    }

    static void Connect(CKorvatinCamera& camera, const char* address) {
        GigEVisionDeviceInfo found[4];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.broadcast = 1;
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 4, &count, &settings);
        for (unsigned int i = 0; i < count; ++i) {
            if (QString(found[i].currentIp) == address) {
                camera.SetHeartbeatDisable(true);
                camera.Connect(found[i], nullptr);
                return;
            }
        }
        QFAIL(qPrintable(QString("no camera answered on %1").arg(address)));
    }

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace for the simulators (run through ctest as "
                  "root)");
        if (!QFile::exists(TestNetwork::binDir() + "/korvatin-camsim"))
            QSKIP("korvatin-camsim is not built in this tree");
        QVERIFY(dir_.isValid());
        const QString path = dir_.filePath("editor-cases.xml");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(ForeignDescription());
        file.close();

        QVERIFY2(builtIn_.startCamsim({"--address", kBuiltInAddress}),
                 qPrintable(builtIn_.errorString()));
        QVERIFY2(foreign_.startCamsim(
                     {"--address", kForeignAddress, "--description", path, "--any-address"}),
                 qPrintable(foreign_.errorString()));
        Connect(camera_, kBuiltInAddress);
        Connect(foreign_camera_, kForeignAddress);
        QVERIFY(camera_.IsConnected());
        QVERIFY(foreign_camera_.IsConnected());
    }

    void cleanupTestCase() {
        camera_.Disconnect();
        foreign_camera_.Disconnect();
    }

    // ---- the base: access modes, display names, messages ----

    void readOnlyEditorIsDisabledAsAWhole() {
        auto payload = Built<CGENiCAMUnsignedInt32Frame>(camera_, "PayloadSize");
        QCOMPARE(payload->Node().AccessMode(), CKorvatinGenICamNodeT::RO);
        QVERIFY(!payload->isEnabled());
        QVERIFY(!Child<QSlider>(payload.get(), "horizontalSlider")->isEnabled());
        QVERIFY(!Child<QLineEdit>(payload.get(), "lineEdit")->isEnabled());
        auto vendor = Built<CGENiCAMStringFrame>(camera_, "DeviceVendorName");
        QVERIFY(!vendor->isEnabled());
        QVERIFY(!Child<QLineEdit>(vendor.get(), "lineEdit")->isEnabled());
        auto temperature = Built<CGENiCAMFloatFrame>(camera_, "DeviceTemperature");
        QVERIFY(!temperature->isEnabled());
    }

    void writeOnlyAndReadWriteEditorsAreEnabled() {
        CGENiCAMUnsignedInt32Frame seed(camera_.GetNodeByName("TestPatternSeed"));
        QCOMPARE(seed.Node().AccessMode(), CKorvatinGenICamNodeT::WO);
        QVERIFY(seed.isEnabled());
        auto width = Built<CGENiCAMUnsignedInt32Frame>(camera_, "Width");
        QCOMPARE(width->Node().AccessMode(), CKorvatinGenICamNodeT::RW);
        QVERIFY(width->isEnabled());
        // Not available and not implemented nodes are not disabled either.
        auto unavailable = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Unavailable");
        QCOMPARE(unavailable->Node().AccessMode(), CKorvatinGenICamNodeT::NA);
        QVERIFY(unavailable->isEnabled());
    }

    void errorMessageIsDisplayNameThenReason() {
        auto trigger = Built<CGENiCAMCommandFrame>(camera_, "TriggerSoftware");
        camera_.SetEnumByString("TriggerMode", "Off");
        QSignalSpy errors(trigger.get(), &CGENiCAMFrame::GENiCAMNodeError);
        QTest::mouseClick(Child<QPushButton>(trigger.get(), "pushButton"), Qt::LeftButton);
        QCOMPARE(errors.count(), 1);
        QCOMPARE(ErrorText(errors),
                 QString("Trigger Software : TriggerSoftware: feature is not available"));
    }

    void displayNameIsCutAt511InMessages() {
        auto odd = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "OddMinimum");
        QCOMPARE(odd->DisplayNameText(), LongDisplayName().left(511));
        QSignalSpy errors(odd.get(), &CGENiCAMFrame::GENiCAMNodeError);
        odd->ReportNodeError("reason");
        QCOMPARE(ErrorText(errors), LongDisplayName().left(511) + " : reason");
    }

    // ---- the node-change callback ----

    void callbackRegistersAndRefreshesItsEditor() {
        auto derived = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Derived");
        foreign_camera_.SetUInt32("Source", 0);
        derived->UpdateFromNode();
        QCOMPARE(Child<QLineEdit>(derived.get(), "lineEdit")->text(), QString("10"));
        {
            CKorvatinGenICamNodeCallbackExt callback(derived->Node(), derived.get());
            QCOMPARE(callback.Editor(), derived.get());
            foreign_camera_.SetUInt32("Source", 3);
            QCOMPARE(Child<QLineEdit>(derived.get(), "lineEdit")->text(), QString("7"));
            QCOMPARE(Child<QSlider>(derived.get(), "horizontalSlider")->value(), 7);
        }
        // Deregistered with its destruction: nothing refreshes the editor any more.
        foreign_camera_.SetUInt32("Source", 4);
        QCOMPARE(Child<QLineEdit>(derived.get(), "lineEdit")->text(), QString("7"));
        foreign_camera_.SetUInt32("Source", 0);
    }

    void failingRefreshKeepsThePreviousValueSilently() {
        foreign_camera_.SetUInt32("Source", 5);
        auto derived = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Derived");
        CKorvatinGenICamNodeCallbackExt callback(derived->Node(), derived.get());
        QSignalSpy errors(derived.get(), &CGENiCAMFrame::GENiCAMNodeError);
        QCOMPARE(Child<QLineEdit>(derived.get(), "lineEdit")->text(), QString("5"));
        // 10 - 50 is negative: the unsigned read of the notified node throws.
        foreign_camera_.SetUInt32("Source", 50);
        QVERIFY(!ThrownText([&] { derived->Node().GetUInt32(); }).isEmpty());
        QCOMPARE(Child<QLineEdit>(derived.get(), "lineEdit")->text(), QString("5"));
        QCOMPARE(Child<QSlider>(derived.get(), "horizontalSlider")->value(), 5);
        QCOMPARE(errors.count(), 0);
        foreign_camera_.SetUInt32("Source", 0);
    }

    void writeToAFeatureRefreshesTheEditorsThatDependOnIt() {
        camera_.SetUInt32("Exposure", 20000);
        camera_.SetUInt32("HDRp1", 15000);
        auto exposure = Built<CGENiCAMUnsignedInt32Frame>(camera_, "Exposure");
        auto knee = Built<CGENiCAMUnsignedInt32Frame>(camera_, "HDRp1");
        CKorvatinGenICamNodeCallbackExt exposureCallback(exposure->Node(), exposure.get());
        CKorvatinGenICamNodeCallbackExt kneeCallback(knee->Node(), knee.get());
        QCOMPARE(Child<QSlider>(knee.get(), "horizontalSlider")->maximum(), 20000);

        // Exposure lowered through its own editor: the knee point's maximum follows, and the
        // simulator lowers the knee point with it.
        auto* text = Child<QLineEdit>(exposure.get(), "lineEdit");
        text->clear();
        QTest::keyClicks(text, "12000");
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(camera_.GetUInt32("Exposure"), 12000u);
        QCOMPARE(Child<QSlider>(exposure.get(), "horizontalSlider")->value(), 12000);
        QCOMPARE(Child<QSlider>(knee.get(), "horizontalSlider")->maximum(), 12000);
        QCOMPARE(Child<QLineEdit>(knee.get(), "lineEdit")->text(),
                 QString::number(camera_.GetUInt32("HDRp1")));
        QVERIFY(camera_.GetUInt32("HDRp1") <= 12000u);

        // Width moved by its slider: Offset X's range follows.
        auto width = Built<CGENiCAMUnsignedInt32Frame>(camera_, "Width");
        auto offset = Built<CGENiCAMUnsignedInt32Frame>(camera_, "OffsetX");
        CKorvatinGenICamNodeCallbackExt widthCallback(width->Node(), width.get());
        CKorvatinGenICamNodeCallbackExt offsetCallback(offset->Node(), offset.get());
        auto* slider = Child<QSlider>(width.get(), "horizontalSlider");
        slider->setSliderPosition(slider->maximum() / 2);
        const uint32_t newWidth = camera_.GetUInt32("Width");
        QCOMPARE(newWidth, uint32_t(slider->maximum() / 2 * 4));
        QCOMPARE(Child<QSlider>(offset.get(), "horizontalSlider")->maximum(),
                 int((camera_.GetUInt32("WidthMax") - newWidth) / 4));
        camera_.SetUInt32("Width", camera_.GetUInt32Max("Width"));
    }

    // ---- Boolean ----

    void booleanShowsAndWritesItsNode() {
        camera_.SetBool("TestPatternMoving", true);
        auto moving = Built<CGENiCAMBooleanFrame>(camera_, "TestPatternMoving");
        Host host(moving.get());
        QVERIFY(QTest::qWaitForWindowExposed(&host.window));
        auto* box = Child<QCheckBox>(moving.get(), "checkBox");
        QVERIFY(box->isChecked());
        QVERIFY(box->text().isEmpty());
        QTest::mouseClick(box, Qt::LeftButton, {}, IndicatorCentre(box));
        QCOMPARE(camera_.GetBool("TestPatternMoving"), false);
        QTest::mouseClick(box, Qt::LeftButton, {}, IndicatorCentre(box));
        QCOMPARE(camera_.GetBool("TestPatternMoving"), true);
    }

    void refusedBooleanKeepsTheUsersStateUntilRefresh() {
        foreign_camera_.SetUInt32("Lock", 0);
        foreign_camera_.SetBool("LockableFlag", false);
        auto flag = Built<CGENiCAMBooleanFrame>(foreign_camera_, "LockableFlag");
        Host host(flag.get());
        QVERIFY(QTest::qWaitForWindowExposed(&host.window));
        QVERIFY(flag->isEnabled());
        foreign_camera_.SetUInt32("Lock", 1); // read-only from now on
        QSignalSpy errors(flag.get(), &CGENiCAMFrame::GENiCAMNodeError);
        auto* box = Child<QCheckBox>(flag.get(), "checkBox");
        QTest::mouseClick(box, Qt::LeftButton, {}, IndicatorCentre(box));
        QCOMPARE(errors.count(), 1);
        QCOMPARE(ErrorText(errors),
                 QString("Lockable Flag : LockableFlag: feature is not writable"));
        QVERIFY(box->isChecked());
        QCOMPARE(foreign_camera_.GetBool("LockableFlag"), false);
        flag->UpdateFromNode();
        QVERIFY(!box->isChecked());
        foreign_camera_.SetUInt32("Lock", 0);
    }

    // ---- Enumeration ----

    void enumerationListsEveryEntryAndShowsTheCurrent() {
        auto mode = Built<CGENiCAMEnumerationFrame>(foreign_camera_, "ModeSelect");
        auto* combo = Child<QComboBox>(mode.get(), "comboBox");
        QCOMPARE(combo->count(), 3);
        QCOMPARE(combo->itemText(0), QString("Alpha"));
        QCOMPARE(combo->itemText(1), QString("Beta"));
        QCOMPARE(combo->itemText(2), QString("Gamma")); // not available, listed all the same
        QCOMPARE(combo->currentText(), QString("Alpha"));
        auto format = Built<CGENiCAMEnumerationFrame>(camera_, "PixelFormat");
        // The simulator's 85 formats, Coord3D_ABC8 among them.
        QCOMPARE(Child<QComboBox>(format.get(), "comboBox")->count(), 85);
    }

    void activatingTheCurrentEntryWritesNothing() {
        camera_.SetEnumByString("TriggerMode", "Off");
        auto mode = Built<CGENiCAMEnumerationFrame>(camera_, "TriggerMode");
        Host host(mode.get());
        WriteCounter writes(camera_.GetNodeByName("TriggerMode"));
        auto* combo = Child<QComboBox>(mode.get(), "comboBox");
        QSignalSpy activated(combo, &QComboBox::textActivated);
        QCOMPARE(combo->currentText(), QString("Off"));
        // The user opens the list and confirms the entry already shown.
        combo->showPopup();
        QTRY_VERIFY(combo->view()->isVisible());
        QTest::keyClick(combo->view(), Qt::Key_Return);
        QCOMPARE(activated.count(), 1);
        QCOMPARE(activated.at(0).at(0).toString(), QString("Off"));
        QCOMPARE(writes.calls, 0);

        // Another entry is written.
        combo->setFocus();
        QTest::keyClick(combo, Qt::Key_Down);
        QCOMPARE(activated.count(), 2);
        QCOMPARE(activated.at(1).at(0).toString(), QString("On"));
        QCOMPARE(writes.calls, 1);
        char value[64];
        camera_.GetEnum("TriggerMode", value, sizeof value);
        QCOMPARE(QString(value), QString("On"));
        camera_.SetEnumByString("TriggerMode", "Off");
    }

    void failedEnumerationWriteKeepsTheOldEntryAsCurrentValue() {
        foreign_camera_.SetEnumByString("ModeSelect", "Alpha");
        auto mode = Built<CGENiCAMEnumerationFrame>(foreign_camera_, "ModeSelect");
        Host host(mode.get());
        WriteCounter writes(foreign_camera_.GetNodeByName("ModeSelect"));
        QSignalSpy errors(mode.get(), &CGENiCAMFrame::GENiCAMNodeError);
        auto* combo = Child<QComboBox>(mode.get(), "comboBox");
        combo->setFocus();
        // Alpha -> Gamma, which is not available.
        QTest::keyClick(combo, Qt::Key_End);
        QCOMPARE(errors.count(), 1);
        QCOMPARE(ErrorText(errors), QString("Mode Select : ") + ThrownText([&] {
                                        foreign_camera_.SetEnumByString("ModeSelect", "Gamma");
                                    }));
        QVERIFY(ErrorText(errors).startsWith("Mode Select : ModeSelect: "));
        QCOMPARE(combo->currentText(), QString("Gamma"));
        QCOMPARE(writes.calls, 0);
        // Back to Alpha: the value the editor holds, so nothing is written.
        QTest::keyClick(combo, Qt::Key_Home);
        QCOMPARE(combo->currentText(), QString("Alpha"));
        QCOMPARE(writes.calls, 0);
        QCOMPARE(errors.count(), 1);
        // Beta differs from it and is written.
        QTest::keyClick(combo, Qt::Key_Down);
        QCOMPARE(writes.calls, 1);
        char value[64];
        foreign_camera_.GetEnum("ModeSelect", value, sizeof value);
        QCOMPARE(QString(value), QString("Beta"));
        foreign_camera_.SetEnumByString("ModeSelect", "Alpha");
    }

    // ---- Command ----

    void commandButtonShowsTheDisplayNameOnceBuilt() {
        CGENiCAMCommandFrame trigger(camera_.GetNodeByName("TriggerSoftware"));
        auto* button = Child<QPushButton>(&trigger, "pushButton");
        QCOMPARE(button->text(), QString("PushButton"));
        trigger.InitFromNode();
        trigger.UpdateFromNode();
        QCOMPARE(button->text(), QString("Trigger Software"));
    }

    void commandButtonExecutesTheCommand() {
        camera_.SetEnumByString("TriggerMode", "On");
        auto trigger = Built<CGENiCAMCommandFrame>(camera_, "TriggerSoftware");
        WriteCounter executions(camera_.GetNodeByName("TriggerSoftware"));
        QSignalSpy errors(trigger.get(), &CGENiCAMFrame::GENiCAMNodeError);
        QTest::mouseClick(Child<QPushButton>(trigger.get(), "pushButton"), Qt::LeftButton);
        QCOMPARE(executions.calls, 1);
        QCOMPARE(errors.count(), 0);
        camera_.SetEnumByString("TriggerMode", "Off");
    }

    // ---- String ----

    void readOnlyStringGetsNoMaximumLength() {
        auto vendor = Built<CGENiCAMStringFrame>(camera_, "DeviceVendorName");
        auto* text = Child<QLineEdit>(vendor.get(), "lineEdit");
        QCOMPARE(text->maxLength(), QLineEdit().maxLength());
        QCOMPARE(text->text(), QString("Korvatin"));
        auto user = Built<CGENiCAMStringFrame>(camera_, "DeviceUserID");
        QCOMPARE(Child<QLineEdit>(user.get(), "lineEdit")->maxLength(),
                 user->Node().GetStringMaxLength());
        QVERIFY(user->Node().GetStringMaxLength() < QLineEdit().maxLength());
    }

    void stringEnterWritesAndGivesUpTheFocus() {
        camera_.SetString("DeviceUserID", "before");
        auto user = Built<CGENiCAMStringFrame>(camera_, "DeviceUserID");
        Host host(user.get());
        QVERIFY(QTest::qWaitForWindowActive(&host.window));
        auto* text = Child<QLineEdit>(user.get(), "lineEdit");
        text->setFocus();
        QTRY_VERIFY(text->hasFocus());
        text->selectAll();
        QTest::keyClicks(text, "after");
        QTest::keyClick(text, Qt::Key_Return);
        char value[64];
        camera_.GetString("DeviceUserID", value, sizeof value);
        QCOMPARE(QString(value), QString("after"));
        QCOMPARE(text->text(), QString("after"));
        QTRY_VERIFY(!text->hasFocus());
    }

    void stringEnterWithUnchangedTextNeitherWritesNorClearsTheFocus() {
        camera_.SetString("DeviceUserID", "same");
        auto user = Built<CGENiCAMStringFrame>(camera_, "DeviceUserID");
        Host host(user.get());
        QVERIFY(QTest::qWaitForWindowActive(&host.window));
        WriteCounter writes(camera_.GetNodeByName("DeviceUserID"));
        auto* text = Child<QLineEdit>(user.get(), "lineEdit");
        text->setFocus();
        QTRY_VERIFY(text->hasFocus());
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(writes.calls, 0);
        QVERIFY(text->hasFocus());
        QCOMPARE(text->text(), QString("same"));
    }

    void stringEditLeftByFocusChangeRestoresTheLastValue() {
        camera_.SetString("DeviceUserID", "kept");
        auto user = Built<CGENiCAMStringFrame>(camera_, "DeviceUserID");
        Host host(user.get());
        QVERIFY(QTest::qWaitForWindowActive(&host.window));
        WriteCounter writes(camera_.GetNodeByName("DeviceUserID"));
        auto* text = Child<QLineEdit>(user.get(), "lineEdit");
        text->setFocus();
        QTRY_VERIFY(text->hasFocus());
        QTest::keyClicks(text, "-discarded");
        QCOMPARE(text->text(), QString("kept-discarded"));
        QTest::mouseClick(host.elsewhere, Qt::LeftButton);
        QTRY_VERIFY(host.elsewhere->hasFocus());
        QCOMPARE(text->text(), QString("kept"));
        QCOMPARE(writes.calls, 0);
        char value[64];
        camera_.GetString("DeviceUserID", value, sizeof value);
        QCOMPARE(QString(value), QString("kept"));
    }

    void longStringIsShownCutAt128Bytes() {
        QByteArray text;
        for (int i = 0; i < 200; ++i)
            text.append(char('a' + i % 26));
        foreign_camera_.SetString("LongText", text.constData());
        auto editor = Built<CGENiCAMStringFrame>(foreign_camera_, "LongText");
        QCOMPARE(Child<QLineEdit>(editor.get(), "lineEdit")->text(),
                 QString::fromLatin1(text.left(128)));
        // Exactly 128 bytes are shown whole.
        foreign_camera_.SetString("LongText", text.left(128).constData());
        editor->UpdateFromNode();
        QCOMPARE(Child<QLineEdit>(editor.get(), "lineEdit")->text(),
                 QString::fromLatin1(text.left(128)));
    }

    // ---- integers ----

    void zeroIncrementBehavesAsIncrementOne() {
        auto editor = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "ZeroIncrement");
        auto* slider = Child<QSlider>(editor.get(), "horizontalSlider");
        QCOMPARE(slider->minimum(), 0);
        QCOMPARE(slider->maximum(), 10);
        QCOMPARE(slider->value(), 3);
        auto* text = Child<QLineEdit>(editor.get(), "lineEdit");
        text->clear();
        QTest::keyClicks(text, "7");
        QCOMPARE(text->styleSheet(), QString(kBlackText));
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(foreign_camera_.GetUInt32("ZeroIncrement"), 7u);
        QCOMPARE(slider->value(), 7);
        slider->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        QCOMPARE(foreign_camera_.GetUInt32("ZeroIncrement"), 8u);
        QCOMPARE(text->text(), QString("8"));
        foreign_camera_.SetUInt32("ZeroIncrement", 3);
    }

    void incrementZeroReportedToTheEditorIsOne() {
        foreign_camera_.SetUInt32("ZeroIncrement", 3);
        ZeroReportingEditor editor(foreign_camera_.GetNodeByName("ZeroIncrement"));
        editor.InitFromNode();
        editor.UpdateFromNode();
        QCOMPARE(editor.GetNodeInc(), 0);
        auto* slider = Child<QSlider>(&editor, "horizontalSlider");
        QCOMPARE(slider->maximum(), 10);
        QCOMPARE(slider->value(), 3);
        auto* text = Child<QLineEdit>(&editor, "lineEdit");
        text->clear();
        QTest::keyClicks(text, "5");
        QCOMPARE(text->styleSheet(), QString(kBlackText));
        slider->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        QCOMPARE(foreign_camera_.GetUInt32("ZeroIncrement"), 4u);
        QCOMPARE(text->text(), QString("4"));
        foreign_camera_.SetUInt32("ZeroIncrement", 3);
    }

    void typedTextMustBeAMultipleOfTheIncrement() {
        foreign_camera_.SetUInt32("Stepped", 4);
        auto editor = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Stepped");
        WriteCounter writes(foreign_camera_.GetNodeByName("Stepped"));
        auto* text = Child<QLineEdit>(editor.get(), "lineEdit");
        auto* slider = Child<QSlider>(editor.get(), "horizontalSlider");
        QCOMPARE(slider->value(), 2);
        text->clear();
        QTest::keyClicks(text, "7");
        QCOMPARE(text->styleSheet(), QString(kRedText));
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(writes.calls, 0);
        QCOMPARE(foreign_camera_.GetUInt32("Stepped"), 4u);

        QTest::keyClick(text, Qt::Key_Backspace);
        QTest::keyClicks(text, "8");
        QCOMPARE(text->text(), QString("8"));
        QCOMPARE(text->styleSheet(), QString(kBlackText));
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(writes.calls, 1);
        QCOMPARE(foreign_camera_.GetUInt32("Stepped"), 8u);
        QCOMPARE(slider->value(), 4);
    }

    void textAboveTheMaximumIsRedAndNotWritten() {
        foreign_camera_.SetUInt32("Stepped", 4);
        auto editor = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Stepped");
        WriteCounter writes(foreign_camera_.GetNodeByName("Stepped"));
        auto* text = Child<QLineEdit>(editor.get(), "lineEdit");
        text->clear();
        QTest::keyClicks(text, "12");
        QCOMPARE(text->text(), QString("12"));
        QCOMPARE(text->styleSheet(), QString(kRedText));
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(writes.calls, 0);
        QCOMPARE(foreign_camera_.GetUInt32("Stepped"), 4u);
    }

    void sliderWritesOnEveryActionButNotItsOwnPosition() {
        foreign_camera_.SetUInt32("Stepped", 4);
        auto editor = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Stepped");
        WriteCounter writes(foreign_camera_.GetNodeByName("Stepped"));
        auto* slider = Child<QSlider>(editor.get(), "horizontalSlider");
        QCOMPARE(slider->pageStep(), 0);
        QCOMPARE(slider->singleStep(), 1);
        QCOMPARE(slider->tickInterval(), 1);
        // The position it already holds.
        slider->triggerAction(QAbstractSlider::SliderMove);
        QCOMPARE(writes.calls, 0);
        // Each step is one write.
        slider->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        slider->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        QCOMPARE(writes.calls, 2);
        QCOMPARE(foreign_camera_.GetUInt32("Stepped"), 8u);
        QCOMPARE(Child<QLineEdit>(editor.get(), "lineEdit")->text(), QString("8"));
        // A page step of 0: a click in the groove does not move the slider.
        slider->triggerAction(QAbstractSlider::SliderPageStepAdd);
        QCOMPARE(writes.calls, 2);
        QCOMPARE(slider->value(), 4);
        // At the maximum a further step holds the position.
        slider->triggerAction(QAbstractSlider::SliderToMaximum);
        QCOMPARE(writes.calls, 3);
        slider->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        QCOMPARE(writes.calls, 3);
        QCOMPARE(foreign_camera_.GetUInt32("Stepped"), 10u);
    }

    void sliderDragAndArrowKeysWriteAtEveryStep() {
        foreign_camera_.SetUInt32("Stepped", 0);
        auto editor = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Stepped");
        Host host(editor.get());
        QVERIFY(QTest::qWaitForWindowActive(&host.window));
        WriteCounter writes(foreign_camera_.GetNodeByName("Stepped"));
        auto* slider = Child<QSlider>(editor.get(), "horizontalSlider");
        QCOMPARE(slider->maximum(), 5);
        QStyleOptionSlider option;
        option.initFrom(slider);
        option.orientation = slider->orientation();
        option.minimum = slider->minimum();
        option.maximum = slider->maximum();
        option.sliderPosition = slider->sliderPosition();
        option.sliderValue = slider->value();
        const QRect handle = slider->style()->subControlRect(QStyle::CC_Slider, &option,
                                                             QStyle::SC_SliderHandle, slider);
        // The user drags the handle to the right end, pixel by pixel, and lets go.
        QPoint at = handle.center();
        QTest::mousePress(slider, Qt::LeftButton, {}, at);
        QList<int> positions{slider->sliderPosition()};
        while (at.x() < slider->width()) {
            at.rx() += 1;
            QTest::mouseMove(slider, at);
            if (positions.last() != slider->sliderPosition())
                positions << slider->sliderPosition();
        }
        QTest::mouseRelease(slider, Qt::LeftButton, {}, at);
        QCOMPARE(positions, (QList<int>{0, 1, 2, 3, 4, 5}));
        // One write per position the handle passed, none when it is let go.
        QCOMPARE(writes.calls, 5);
        QCOMPARE(foreign_camera_.GetUInt32("Stepped"), 10u);
        // Each arrow key is one write.
        slider->setFocus();
        const int before = writes.calls;
        QTest::keyClick(slider, Qt::Key_Left);
        QTest::keyClick(slider, Qt::Key_Left);
        QCOMPARE(writes.calls, before + 2);
        QCOMPARE(foreign_camera_.GetUInt32("Stepped"), 6u);
        QCOMPARE(Child<QLineEdit>(editor.get(), "lineEdit")->text(), QString("6"));
    }

    void readOnlySliderCannotMove() {
        auto payload = Built<CGENiCAMUnsignedInt32Frame>(camera_, "PayloadSize");
        Host host(payload.get());
        QVERIFY(QTest::qWaitForWindowActive(&host.window));
        auto* slider = Child<QSlider>(payload.get(), "horizontalSlider");
        const int before = slider->value();
        slider->setFocus();
        QTest::keyClick(slider, Qt::Key_Right);
        QTest::mouseClick(slider, Qt::LeftButton, {}, slider->rect().center());
        QCOMPARE(slider->value(), before);
        QCOMPARE(slider->sliderPosition(), before);
    }

    void unavailableOrUnimplementedSliderMovesButWritesNothing_data() {
        QTest::addColumn<QString>("feature");
        QTest::addColumn<int>("mode");
        QTest::newRow("NA") << "Unavailable" << int(CKorvatinGenICamNodeT::NA);
        QTest::newRow("NI") << "Unimplemented" << int(CKorvatinGenICamNodeT::NI);
    }

    void unavailableOrUnimplementedSliderMovesButWritesNothing() {
        QFETCH(QString, feature);
        QFETCH(int, mode);
        const QByteArray name = feature.toLatin1();
        auto editor = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, name.constData());
        QCOMPARE(int(editor->Node().AccessMode()), mode);
        WriteCounter writes(foreign_camera_.GetNodeByName(name.constData()));
        QSignalSpy errors(editor.get(), &CGENiCAMFrame::GENiCAMNodeError);
        auto* slider = Child<QSlider>(editor.get(), "horizontalSlider");
        QCOMPARE(slider->value(), 4);
        slider->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        QCOMPARE(slider->value(), 5);
        QCOMPARE(writes.calls, 0);
        QCOMPARE(errors.count(), 0);
        QCOMPARE(foreign_camera_.GetUInt32(name.constData()), 4u);
        QCOMPARE(Child<QLineEdit>(editor.get(), "lineEdit")->text(), QString("4"));
    }

    void lowestSliderPositionBelowTheMinimumIsWrittenAndRefused() {
        auto odd = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "OddMinimum");
        auto* slider = Child<QSlider>(odd.get(), "horizontalSlider");
        QCOMPARE(slider->minimum(), 2); // 5 / 2
        QCOMPARE(slider->maximum(), 4); // 9 / 2
        QCOMPARE(slider->value(), 2);   // 5 / 2
        QSignalSpy errors(odd.get(), &CGENiCAMFrame::GENiCAMNodeError);
        slider->triggerAction(QAbstractSlider::SliderSingleStepAdd); // 3: the value 6
        QCOMPARE(errors.count(), 1);
        slider->triggerAction(QAbstractSlider::SliderSingleStepSub); // 2: the value 4
        QCOMPARE(errors.count(), 2);
        QCOMPARE(ErrorText(errors, 1), LongDisplayName().left(511) + " : " + ThrownText([&] {
                                           foreign_camera_.SetUInt32("OddMinimum", 4);
                                       }));
        QVERIFY(ErrorText(errors, 1).endsWith(" : OddMinimum: value 4 is out of range (5 .. 9)"));
        QCOMPARE(slider->value(), 2);
        QCOMPARE(foreign_camera_.GetUInt32("OddMinimum"), 5u);
    }

    void multipleIsTakenFromZeroNotFromTheMinimum() {
        auto odd = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "OddMinimum");
        auto* text = Child<QLineEdit>(odd.get(), "lineEdit");
        text->clear();
        QTest::keyClicks(text, "7");
        QCOMPARE(text->styleSheet(), QString(kRedText));
        text->clear();
        QTest::keyClicks(text, "6");
        QCOMPARE(text->styleSheet(), QString(kBlackText));
        QVERIFY(text->hasAcceptableInput());
    }

    void unsignedMaximumAboveIntIsMinusOne() {
        auto full = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "FullRange");
        QCOMPARE(full->Node().GetUInt32Max(), 4294967295u);
        QCOMPARE(full->GetNodeMax(), -1);
        auto* slider = Child<QSlider>(full.get(), "horizontalSlider");
        QCOMPARE(slider->maximum(), 0); // -1 / 2
        QCOMPARE(slider->minimum(), 0);
        auto* text = Child<QLineEdit>(full.get(), "lineEdit");
        auto* validator = qobject_cast<const QIntValidator*>(text->validator());
        QVERIFY(validator != nullptr);
        QCOMPARE(validator->bottom(), 0);
        QCOMPARE(validator->top(), -1);
        QCOMPARE(text->text(), QString("10"));
        // No text is acceptable in the range 0 to -1.
        QVERIFY(!text->hasAcceptableInput());
    }

    void refreshAfterRedTextKeepsItRed() {
        foreign_camera_.SetUInt32("Stepped", 4);
        auto editor = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Stepped");
        auto* text = Child<QLineEdit>(editor.get(), "lineEdit");
        text->clear();
        QTest::keyClicks(text, "7");
        QCOMPARE(text->styleSheet(), QString(kRedText));
        editor->UpdateFromNode();
        QCOMPARE(text->text(), QString("4"));
        QCOMPARE(text->styleSheet(), QString(kRedText));
        Child<QSlider>(editor.get(), "horizontalSlider")
            ->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        QCOMPARE(text->text(), QString("6"));
        QCOMPARE(text->styleSheet(), QString(kBlackText));
        foreign_camera_.SetUInt32("Stepped", 4);
    }

    void signedEditorFollowsNegativeRangesAndSteps() {
        camera_.SetInt32("FocusPosition", -512);
        auto focus = Built<CGENiCAMSignedInt32Frame>(camera_, "FocusPosition");
        auto* slider = Child<QSlider>(focus.get(), "horizontalSlider");
        QCOMPARE(slider->minimum(), -128);
        QCOMPARE(slider->maximum(), 128);
        QCOMPARE(slider->value(), -64);
        slider->triggerAction(QAbstractSlider::SliderSingleStepSub);
        QCOMPARE(camera_.GetInt32("FocusPosition"), -520);
        QCOMPARE(Child<QLineEdit>(focus.get(), "lineEdit")->text(), QString("-520"));
        auto* text = Child<QLineEdit>(focus.get(), "lineEdit");
        text->clear();
        QTest::keyClicks(text, "-1000");
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(camera_.GetInt32("FocusPosition"), -1000);
        QCOMPARE(slider->value(), -125);
    }

    // ---- floats ----

    void numberFieldsWidenToShowTheWholeRangeAndUnit() {
        auto wide = Built<CGENiCAMSignedInt32Frame>(foreign_camera_, "WideSigned");
        auto rate = Built<CGENiCAMFloatFrame>(foreign_camera_, "WideUnit");
        for (CGENiCAMFrame* editor :
             {static_cast<CGENiCAMFrame*>(wide.get()), static_cast<CGENiCAMFrame*>(rate.get())}) {
            // Its limits let the editor take its natural width, which its fields now count in.
            QVERIFY(editor->maximumWidth() >= editor->sizeHint().width());
            editor->resize(editor->sizeHint());
            editor->layout()->activate();
        }
        auto* text = Child<QLineEdit>(wide.get(), "lineEdit");
        QCOMPARE(text->text(), QString("-2000000000"));
        QVERIFY(text->maximumWidth() > 71);
        for (const char* number : {"-2000000000", "-2147483648", "2147483647"})
            QVERIFY2(uitest::ShowsWhole(*text, number), number);
        auto* value = Child<QLineEdit>(rate.get(), "lineEdit");
        QCOMPARE(value->text(), QString("123456"));
        for (const char* number : {"123456", "-1e+06", "1e+06"})
            QVERIFY2(uitest::ShowsWhole(*value, number), number);
        auto* unit = Child<QLineEdit>(rate.get(), "lineEditUnit");
        QCOMPARE(unit->text(), QString("counts per second"));
        QVERIFY(unit->maximumWidth() > 71);
        QVERIFY(uitest::ShowsWhole(*unit, unit->text()));
        // A short number keeps the form's width.
        auto width = Built<CGENiCAMUnsignedInt32Frame>(camera_, "Width");
        QCOMPARE(Child<QLineEdit>(width.get(), "lineEdit")->maximumWidth(), 71);
        QCOMPARE(width->maximumWidth(), 248);
    }

    void floatRangeGivesSliderInHundredths() {
        foreign_camera_.SetDouble("SmallFloat", 0.5);
        auto small = Built<CGENiCAMFloatFrame>(foreign_camera_, "SmallFloat");
        auto* slider = Child<QSlider>(small.get(), "horizontalSlider");
        QCOMPARE(slider->minimum(), 0);
        QCOMPARE(slider->maximum(), 150);
        QCOMPARE(slider->value(), 50);
        QCOMPARE(Child<QLineEdit>(small.get(), "lineEditUnit")->text(), QString("V"));
        QVERIFY(Child<QLineEdit>(small.get(), "lineEditUnit")->isReadOnly());
        slider->setSliderPosition(37);
        QCOMPARE(foreign_camera_.GetDouble("SmallFloat"), 0.37);
        QCOMPARE(Child<QLineEdit>(small.get(), "lineEdit")->text(), QString("0.37"));
        QCOMPARE(slider->value(), 37);
    }

    void floatTextWithThreeDecimalsCannotBeConfirmed() {
        foreign_camera_.SetDouble("SmallFloat", 0.5);
        auto small = Built<CGENiCAMFloatFrame>(foreign_camera_, "SmallFloat");
        WriteCounter writes(foreign_camera_.GetNodeByName("SmallFloat"));
        auto* text = Child<QLineEdit>(small.get(), "lineEdit");
        QString input = "0.125";
        int pos = 5;
        QCOMPARE(text->validator()->validate(input, pos), QValidator::Intermediate);
        text->clear();
        QTest::keyClicks(text, "0.125");
        QCOMPARE(text->text(), QString("0.125"));
        QCOMPARE(text->styleSheet(), QString(kRedText));
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(writes.calls, 0);
        QCOMPARE(foreign_camera_.GetDouble("SmallFloat"), 0.5);
        // Two decimals are confirmed.
        QTest::keyClick(text, Qt::Key_Backspace);
        QCOMPARE(text->styleSheet(), QString(kBlackText));
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(writes.calls, 1);
        QCOMPARE(foreign_camera_.GetDouble("SmallFloat"), 0.12);
        QCOMPARE(Child<QSlider>(small.get(), "horizontalSlider")->value(), 12);
        QCOMPARE(text->text(), QString("0.12"));
    }

    void floatEditorOnTheSimulatorsGain() {
        camera_.SetDouble("Gain", 6.0);
        auto gain = Built<CGENiCAMFloatFrame>(camera_, "Gain");
        CKorvatinGenICamNodeCallbackExt callback(gain->Node(), gain.get());
        auto* slider = Child<QSlider>(gain.get(), "horizontalSlider");
        QCOMPARE(slider->maximum(), 2400);
        QCOMPARE(slider->value(), 600);
        QCOMPARE(Child<QLineEdit>(gain.get(), "lineEditUnit")->text(), QString("dB"));
        QCOMPARE(Child<QLineEdit>(gain.get(), "lineEdit")->text(), QString("6"));
        slider->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        QCOMPARE(camera_.GetDouble("Gain"), 6.01);
        QCOMPARE(Child<QLineEdit>(gain.get(), "lineEdit")->text(), QString("6.01"));
        // A write elsewhere reaches the editor through its callback.
        camera_.SetDouble("Gain", 12.5);
        QCOMPARE(slider->value(), 1250);
        QCOMPARE(Child<QLineEdit>(gain.get(), "lineEdit")->text(), QString("12.5"));
    }

    void readOnlyTextShowsItsStartWithTheWholeTextAsToolTip() {
        auto info = Built<CGENiCAMStringFrame>(camera_, "DeviceManufacturerInfo");
        auto* text = Child<QLineEdit>(info.get(), "lineEdit");
        const QString whole = "Simulated camera of Korvatin Viewlane";
        QCOMPARE(text->text(), whole);
        QCOMPARE(text->cursorPosition(), 0);
        QCOMPARE(text->toolTip(), whole);
        // A refresh from the node shows the start again.
        text->end(false);
        info->UpdateFromNode();
        QCOMPARE(text->cursorPosition(), 0);
        // A text the user may edit gets no tool tip.
        auto user = Built<CGENiCAMStringFrame>(camera_, "DeviceUserID");
        QVERIFY(Child<QLineEdit>(user.get(), "lineEdit")->toolTip().isEmpty());
    }

    // ---- forms ----

    void formsHaveTheirObjectsAndGeometry() {
        auto boolean = Built<CGENiCAMBooleanFrame>(camera_, "TestPatternMoving");
        QCOMPARE(boolean->objectName(), QString("Frame"));
        QCOMPARE(boolean->windowTitle(), QString("Frame"));
        QCOMPARE(boolean->maximumWidth(), 242);
        QCOMPARE(boolean->sizePolicy().horizontalPolicy(), QSizePolicy::Fixed);
        QCOMPARE(boolean->frameShape(), QFrame::NoFrame);
        QCOMPARE(boolean->frameShadow(), QFrame::Plain);
        QCOMPARE(boolean->size(), QSize(176, 33));
        QCOMPARE(boolean->layout()->objectName(), QString("horizontalLayout"));
        QCOMPARE(boolean->layout()->contentsMargins(), QMargins(0, 0, 0, 0));

        auto enumeration = Built<CGENiCAMEnumerationFrame>(camera_, "PixelFormat");
        QCOMPARE(enumeration->size(), QSize(246, 32));
        QCOMPARE(enumeration->maximumWidth(), 246);
        QCOMPARE(enumeration->layout()->contentsMargins(), QMargins(2, 2, 2, 2));

        auto command = Built<CGENiCAMCommandFrame>(camera_, "TriggerSoftware");
        QCOMPARE(command->size(), QSize(242, 33));
        QCOMPARE(command->sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
        QCOMPARE(command->sizePolicy().verticalPolicy(), QSizePolicy::Fixed);
        QCOMPARE(command->frameShadow(), QFrame::Sunken);
        QCOMPARE(Child<QPushButton>(command.get(), "pushButton")->styleSheet(),
                 QString("background-color: rgb(180, 180, 180);"));

        auto string = Built<CGENiCAMStringFrame>(camera_, "DeviceUserID");
        QCOMPARE(string->size(), QSize(202, 22));
        QCOMPARE(string->frameShape(), QFrame::StyledPanel);
        QVERIFY(string->layout() == nullptr);
        QCOMPARE(Child<QLineEdit>(string.get(), "lineEdit")->geometry(), QRect(0, 0, 201, 21));

        auto integer = Built<CGENiCAMUnsignedInt32Frame>(camera_, "Width");
        auto floating = Built<CGENiCAMFloatFrame>(camera_, "Gain");
        for (QFrame* frame :
             {static_cast<QFrame*>(integer.get()), static_cast<QFrame*>(floating.get())}) {
            QCOMPARE(frame->size(), QSize(246, 33));
            QCOMPARE(frame->maximumWidth(), 248);
            QCOMPARE(frame->frameShadow(), QFrame::Sunken);
            auto* grid = qobject_cast<QGridLayout*>(frame->layout());
            QVERIFY(grid != nullptr);
            QCOMPARE(grid->objectName(), QString("gridLayout"));
            QCOMPARE(grid->contentsMargins(), QMargins(2, 2, 2, 2));
            QCOMPARE(grid->itemAtPosition(0, 0)->widget()->objectName(),
                     QString("horizontalSlider"));
            QCOMPARE(grid->itemAtPosition(0, 1)->widget()->objectName(), QString("lineEdit"));
            QCOMPARE(Child<QLineEdit>(frame, "lineEdit")->maximumWidth(), 71);
            QCOMPARE(Child<QSlider>(frame, "horizontalSlider")->orientation(), Qt::Horizontal);
        }
        auto* grid = qobject_cast<QGridLayout*>(floating->layout());
        QCOMPARE(grid->itemAtPosition(0, 2)->widget()->objectName(), QString("lineEditUnit"));
    }

    void editorsHaveTheirOwnMetaMethodsOnly() {
        QCOMPARE(OwnMethods(CGENiCAMFrame::staticMetaObject),
                 QStringList{"GENiCAMNodeError(QString)"});
        QCOMPARE(OwnMethods(CGENiCAMBooleanFrame::staticMetaObject),
                 QStringList{"on_checkBox_clicked(bool)"});
        QCOMPARE(OwnMethods(CGENiCAMEnumerationFrame::staticMetaObject),
                 QStringList{"on_comboBox_textActivated(QString)"});
        QCOMPARE(OwnMethods(CGENiCAMCommandFrame::staticMetaObject),
                 QStringList{"pushButton_clicked(bool)"});
        QCOMPARE(OwnMethods(CGENiCAMStringFrame::staticMetaObject),
                 (QStringList{"on_lineEdit_returnPressed()", "on_lineEdit_editingFinished()"}));
        const QStringList numeric{"lineEdit_returnPressed()", "lineEdit_textEdited(QString)",
                                  "horizontalSlider_actionTriggered(int)"};
        QCOMPARE(OwnMethods(CGENiCAMInt32Frame::staticMetaObject), numeric);
        QCOMPARE(OwnMethods(CGENiCAMFloatFrame::staticMetaObject), numeric);
        QVERIFY(OwnMethods(CGENiCAMUnsignedInt32Frame::staticMetaObject).isEmpty());
        QVERIFY(OwnMethods(CGENiCAMSignedInt32Frame::staticMetaObject).isEmpty());
    }

    void numericEditorsOwnTheirValidators() {
        auto integer = Built<CGENiCAMUnsignedInt32Frame>(camera_, "Width");
        auto floating = Built<CGENiCAMFloatFrame>(camera_, "Gain");
        const QValidator* intValidator = Child<QLineEdit>(integer.get(), "lineEdit")->validator();
        QVERIFY(qobject_cast<const CScaleIntValidator*>(intValidator) != nullptr);
        QVERIFY(intValidator->parent() == nullptr);
        QCOMPARE(qobject_cast<const CScaleIntValidator*>(intValidator)->Scale(), 4);
        QCOMPARE(qobject_cast<const QIntValidator*>(intValidator)->bottom(), 16);
        const QValidator* doubleValidator =
            Child<QLineEdit>(floating.get(), "lineEdit")->validator();
        auto* scaled = qobject_cast<const CScaleDoubleValidator*>(doubleValidator);
        QVERIFY(scaled != nullptr);
        QVERIFY(scaled->parent() == nullptr);
        QCOMPARE(scaled->Scale(), 1);
        QCOMPARE(scaled->decimals(), 2);
        QCOMPARE(scaled->bottom(), 0.0);
        QCOMPARE(scaled->top(), 24.0);
    }

    void screenshotOfEditorsInATree() {
        QTreeWidget tree;
        tree.setColumnCount(2);
        tree.resize(520, 330);
        auto* root = new QTreeWidgetItem(&tree, QStringList{"Root"});
        auto add = [&](CGENiCAMFrame* editor) {
            editor->InitFromNode();
            editor->UpdateFromNode();
            auto* item = new QTreeWidgetItem(root, QStringList{editor->DisplayNameText()});
            tree.setItemWidget(item, 1, editor);
        };
        add(new CGENiCAMStringFrame(camera_.GetNodeByName("DeviceUserID")));
        add(new CGENiCAMFloatFrame(camera_.GetNodeByName("DeviceTemperature")));
        add(new CGENiCAMCommandFrame(camera_.GetNodeByName("DeviceReset")));
        add(new CGENiCAMUnsignedInt32Frame(camera_.GetNodeByName("Width")));
        add(new CGENiCAMEnumerationFrame(camera_.GetNodeByName("PixelFormat")));
        add(new CGENiCAMFloatFrame(camera_.GetNodeByName("Gain")));
        add(new CGENiCAMSignedInt32Frame(camera_.GetNodeByName("BlackLevel")));
        add(new CGENiCAMBooleanFrame(camera_.GetNodeByName("LUTEnable")));
        tree.expandAll();
        tree.setColumnWidth(0, 170);
        tree.show();
        QVERIFY(QTest::qWaitForWindowExposed(&tree));
        // Every row is at least as tall as its editor wants.
        for (int i = 0; i < root->childCount(); ++i) {
            QWidget* editor = tree.itemWidget(root->child(i), 1);
            QVERIFY2(tree.visualItemRect(root->child(i)).height() >= editor->sizeHint().height(),
                     qPrintable(root->child(i)->text(0)));
        }
        QVERIFY(QFile::exists(uitest::SaveScreenshot(&tree, "genicam-editors-tree")));
    }

    void screenshotOfEveryEditorKind() {
        QWidget column;
        auto* layout = new QGridLayout(&column);
        std::vector<std::unique_ptr<CGENiCAMFrame>> editors;
        auto add = [&](std::unique_ptr<CGENiCAMFrame> editor) {
            const int row = layout->rowCount();
            layout->addWidget(new QLabel(editor->DisplayNameText().left(40), &column), row, 0);
            layout->addWidget(editor.get(), row, 1);
            editors.push_back(std::move(editor));
        };
        camera_.SetString("DeviceUserID", "bench-camera");
        add(Built<CGENiCAMStringFrame>(camera_, "DeviceUserID"));
        add(Built<CGENiCAMStringFrame>(camera_, "DeviceVendorName"));
        add(Built<CGENiCAMFloatFrame>(camera_, "DeviceTemperature"));
        add(Built<CGENiCAMCommandFrame>(camera_, "DeviceReset"));
        add(Built<CGENiCAMUnsignedInt32Frame>(camera_, "Width"));
        add(Built<CGENiCAMEnumerationFrame>(camera_, "PixelFormat"));
        add(Built<CGENiCAMUnsignedInt32Frame>(camera_, "Exposure"));
        add(Built<CGENiCAMFloatFrame>(camera_, "Gain"));
        add(Built<CGENiCAMSignedInt32Frame>(camera_, "BlackLevel"));
        add(Built<CGENiCAMBooleanFrame>(camera_, "LUTEnable"));
        add(Built<CGENiCAMUnsignedInt32Frame>(camera_, "PayloadSize"));
        auto stepped = Built<CGENiCAMUnsignedInt32Frame>(foreign_camera_, "Stepped");
        auto* text = Child<QLineEdit>(stepped.get(), "lineEdit");
        text->clear();
        QTest::keyClicks(text, "7"); // red: not a multiple of 2
        add(std::move(stepped));
        column.show();
        QVERIFY(QTest::qWaitForWindowExposed(&column));
        const QString path = uitest::SaveScreenshot(&column, "genicam-editors");
        QVERIFY(QFile::exists(path));
        for (const auto& editor : editors)
            QVERIFY(editor->isVisible());
    }
};

QTEST_MAIN(TestGenicamEditors)
#include "tst_genicameditors.moc"
