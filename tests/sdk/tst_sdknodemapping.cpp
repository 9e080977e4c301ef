// Node mapping: types, access modes, texts, caching and links of a description file of our own.
// Aravis (GLib) first: Qt defines "signals" as a macro, which GLib headers use as a name.
#include <arv.h>

#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatingenicamnodecallback.h>

#include <QtTest>

#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr const char* kAddress = "127.0.0.81";

class CountingCallback : public CKorvatinGenICamNodeCallback {
public:
    void NodeChanged() override {
        ++calls;
        threads.push_back(std::this_thread::get_id());
    }
    int calls = 0;
    std::vector<std::thread::id> threads; // where each call ran
};

QString name(const CKorvatinGenICamNodeT& node) {
    char text[128];
    node.Name(text, sizeof text, nullptr);
    return text;
}

} // namespace

class TestSdkNodeMapping : public QObject {
    Q_OBJECT

private:
    SimulatorProcess fake_;
    GigEVisionDeviceInfo device_{};
    CKorvatinCamera camera_;
    QByteArray xmlPath_;

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace for Aravis' fake camera (run through ctest "
                  "as root)");
        xmlPath_ = (TestNetwork::sourceDir() + "/tests/sdk/data/nodemapping.xml").toLocal8Bit();
        QVERIFY(QFile::exists(xmlPath_));
        QVERIFY2(fake_.startAravisFake(kAddress, "SN0081"), qPrintable(fake_.errorString()));
        GigEVisionDeviceInfo found[2];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.interfaceAddress = kAddress;
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 2, &count, &settings);
        QCOMPARE(count, 1u);
        device_ = found[0];
        camera_.SetHeartbeatDisable(true);
        camera_.Connect(device_, xmlPath_.constData());
    }

    void cleanupTestCase() { camera_.Disconnect(); }

    void eachDataTypeIsMapped() {
        QCOMPARE(camera_.GetGENiCAMRoot().DataType(), QRN_PARAM_CATEGORY);
        QCOMPARE(camera_.GetNodeByName("UnsignedValue").DataType(), QRN_PARAM_UINT32);
        QCOMPARE(camera_.GetNodeByName("SignedValue").DataType(), QRN_PARAM_INT32);
        QCOMPARE(camera_.GetNodeByName("FlagValue").DataType(), QRN_PARAM_BOOLEAN);
        QCOMPARE(camera_.GetNodeByName("ResetCommand").DataType(), QRN_PARAM_COMMAND);
        QCOMPARE(camera_.GetNodeByName("GainValue").DataType(), QRN_PARAM_FLOAT);
        QCOMPARE(camera_.GetNodeByName("LabelText").DataType(), QRN_PARAM_STRING);
        QCOMPARE(camera_.GetNodeByName("ModeSelect").DataType(), QRN_PARAM_ENUMERATION);
        std::list<CKorvatinGenICamNodeT> entries;
        camera_.GetNodeByName("ModeSelect").GetEnumEntries(&entries);
        QVERIFY(!entries.empty());
        QCOMPARE(entries.front().DataType(), QRN_PARAM_ENUMENTRY);
        QCOMPARE(camera_.GetNodeByName("RawBlock").DataType(), QRN_PARAM_OTHER);
        QCOMPARE(camera_.GetNodeByName("Device").DataType(), QRN_PARAM_OTHER);
        QCOMPARE(QString(QrnParamDataTypeName(QRN_PARAM_INT32)), QString("Int32"));

        QrnParamAttribute attribute;
        camera_.GetParamAttr("SignedValue", &attribute);
        QCOMPARE(attribute.dataType, uint32_t(QRN_PARAM_INT32));
        QCOMPARE(QString(attribute.displayName), QString("Signed value"));
    }

    void valuesOfEachTypeReadAndWrite() {
        CKorvatinGenICamNodeT unsignedValue = camera_.GetNodeByName("UnsignedValue");
        QCOMPARE(unsignedValue.GetUInt32(), 10u);
        QCOMPARE(unsignedValue.GetUInt32Min(), 0u);
        QCOMPARE(unsignedValue.GetUInt32Max(), 100u);
        QCOMPARE(unsignedValue.GetUInt32Inc(), 2u);
        unsignedValue.SetUInt32(42);
        QCOMPARE(camera_.GetUInt32("UnsignedValue"), 42u);
        try {
            unsignedValue.SetUInt32(43);
            QFAIL("a value off the increment was accepted");
        } catch (const CKorvatinException& e) {
            QCOMPARE(e.Code(), QRN_ERR_RANGE);
            QVERIFY2(QString(e.what()).startsWith("UnsignedValue: value 43 "), e.what());
        }
        try {
            unsignedValue.SetUInt32(102);
            QFAIL("a value above the maximum was accepted");
        } catch (const CKorvatinException& e) {
            QCOMPARE(QString(e.what()),
                     QString("UnsignedValue: value 102 is out of range (0 .. 100)"));
        }

        CKorvatinGenICamNodeT signedValue = camera_.GetNodeByName("SignedValue");
        QCOMPARE(signedValue.GetInt32(), -5);
        QCOMPARE(signedValue.GetInt32Min(), -100);
        QCOMPARE(signedValue.GetInt32Max(), 100);
        QCOMPARE(signedValue.GetInt32Inc(), 1);
        camera_.SetInt32("SignedValue", -77);
        QCOMPARE(signedValue.GetInt32(), -77);
        // A negative value does not fit an unsigned reading.
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, signedValue.GetUInt32());

        QCOMPARE(camera_.GetBool("FlagValue"), false);
        camera_.SetBool("FlagValue", true);
        QCOMPARE(camera_.GetNodeByName("FlagValue").GetBool(), true);
        QCOMPARE(camera_.GetUInt32("FlagInteger"), 1u);

        CKorvatinGenICamNodeT gain = camera_.GetNodeByName("GainValue");
        QCOMPARE(gain.GetDouble(), 1.5);
        QCOMPARE(gain.GetDoubleMin(), 0.0);
        QCOMPARE(gain.GetDoubleMax(), 10.0);
        char unit[8];
        unsigned long unitLength = 0;
        gain.GetDoubleUnit(unit, sizeof unit, &unitLength);
        QCOMPARE(QString(unit), QString("dB"));
        QCOMPARE(unitLength, 2ul);
        gain.SetDouble(7.25);
        QCOMPARE(camera_.GetDouble("GainValue"), 7.25);
        try {
            gain.SetDouble(11.0);
            QFAIL("a float above the maximum was accepted");
        } catch (const CKorvatinException& e) {
            QCOMPARE(QString(e.what()), QString("GainValue: value 11 is out of range (0 .. 10)"));
        }

        CKorvatinGenICamNodeT label = camera_.GetNodeByName("LabelText");
        QCOMPARE(label.GetStringMaxLength(), 32);
        label.SetString("hello camera");
        char text[64];
        unsigned long textLength = 0;
        camera_.GetString("LabelText", text, sizeof text, &textLength);
        QCOMPARE(QString(text), QString("hello camera"));
        QCOMPARE(textLength, 12ul);
        // A text getter cuts to the buffer: size-1 characters and the NUL.
        char small[6];
        label.GetString(small, sizeof small, &textLength);
        QCOMPARE(QString(small), QString("hello"));
        QCOMPARE(textLength, 12ul);
        try {
            label.SetString(QByteArray(33, 'x').constData());
            QFAIL("a text longer than the maximum was accepted");
        } catch (const CKorvatinException& e) {
            QCOMPARE(e.Code(), QRN_ERR_RANGE);
            QVERIFY2(QString(e.what()).startsWith("LabelText: "), e.what());
        }

        CKorvatinGenICamNodeT mode = camera_.GetNodeByName("ModeSelect");
        std::list<CKorvatinGenICamNodeT> entries;
        mode.GetEnumEntries(&entries);
        QCOMPARE(entries.size(), std::size_t(2));
        char symbolic[16];
        entries.back().GetEnumEntrySymbolic(symbolic, sizeof symbolic, nullptr);
        QCOMPARE(QString(symbolic), QString("On"));
        QCOMPARE(entries.back().GetEnumEntryValue(), int64_t(1));
        mode.SetEnumByString("On");
        char current[16];
        mode.GetEnum(current, sizeof current, nullptr);
        QCOMPARE(QString(current), QString("On"));
        QCOMPARE(camera_.GetUInt32("ModeInteger"), 1u);
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, mode.SetEnumByString("Sideways"));

        camera_.ExecuteCommand("ResetCommand");
        QCOMPARE(camera_.GetUInt32("ResetRegister"), 1u);
    }

    void eachAccessModeIsMapped() {
        QCOMPARE(camera_.GetNodeByName("NotImplementedValue").AccessMode(),
                 CKorvatinGenICamNodeT::NI);
        QCOMPARE(camera_.GetNodeByName("NotAvailableValue").AccessMode(),
                 CKorvatinGenICamNodeT::NA);
        QCOMPARE(camera_.GetNodeByName("WriteOnlyValue").AccessMode(), CKorvatinGenICamNodeT::WO);
        QCOMPARE(camera_.GetNodeByName("ReadOnlyValue").AccessMode(), CKorvatinGenICamNodeT::RO);
        QCOMPARE(camera_.GetNodeByName("ReadWriteValue").AccessMode(), CKorvatinGenICamNodeT::RW);
        QCOMPARE(camera_.GetNodeByName("LockedValue").AccessMode(), CKorvatinGenICamNodeT::RO);

        try {
            camera_.SetUInt32("ReadOnlyValue", 3);
            QFAIL("a read-only node was written");
        } catch (const CKorvatinException& e) {
            QCOMPARE(QString(e.what()), QString("ReadOnlyValue: feature is not writable"));
        }
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera_.SetUInt32("NotAvailableValue", 3));
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera_.SetUInt32("LockedValue", 3));
        camera_.SetUInt32("WriteOnlyValue", 12);
        camera_.SetUInt32("ReadWriteValue", 13);
        QCOMPARE(camera_.GetUInt32("ReadWriteValue"), 13u);

        QrnParamAttribute attribute;
        camera_.GetParamAttr("WriteOnlyValue", &attribute);
        QCOMPARE(attribute.accessMode, uint32_t(CKorvatinGenICamNodeT::WO));
    }

    void displayNameIsCutToTheBuffer() {
        CKorvatinGenICamNodeT node = camera_.GetNodeByName("UnsignedValue");
        const QString full("Unsigned value with a display name that is deliberately longer than "
                           "sixty-three characters");
        char buffer[64];
        std::memset(buffer, 'z', sizeof buffer);
        unsigned long length = 0;
        node.DisplayName(buffer, sizeof buffer, &length);
        QCOMPARE(length, static_cast<unsigned long>(full.size()));
        QCOMPARE(std::strlen(buffer), std::size_t(63));
        QCOMPARE(QString(buffer), full.left(63));
        char root[32];
        camera_.GetGENiCAMRoot().DisplayName(root, sizeof root, nullptr);
        QCOMPARE(QString(root), QString("Root"));
        char tip[16];
        node.ToolTip(tip, sizeof tip, &length);
        QCOMPARE(QString(tip), QString("An unsigned int"));
        // A node without a display name shows its name.
        char plain[64];
        camera_.GetNodeByName("FlagInteger").DisplayName(plain, sizeof plain, nullptr);
        QCOMPARE(QString(plain), QString("FlagInteger"));
    }

    void cachabilityFollowsNoCacheAndPolling() {
        QCOMPARE(camera_.GetNodeByName("NoCacheValue").IsCachable(), false);
        QCOMPARE(camera_.GetNodeByName("NoCacheRegister").IsCachable(), false);
        QCOMPARE(camera_.GetNodeByName("PolledValue").IsCachable(), false);
        QCOMPARE(camera_.GetNodeByName("CachedValue").IsCachable(), true);
        QCOMPARE(camera_.GetNodeByName("UnsignedValue").IsCachable(), true);
        QrnParamAttribute attribute;
        camera_.GetParamAttr("NoCacheValue", &attribute);
        QCOMPARE(attribute.cachable, 0u);
        camera_.GetParamAttr("CachedValue", &attribute);
        QCOMPARE(attribute.cachable, 1u);
    }

    void categoryListsItsFeaturesInOrder() {
        std::list<CKorvatinGenICamNodeT> features;
        camera_.GetNodeByName("Types").GetCategoryFeatures(&features);
        QStringList names;
        for (const auto& feature : features)
            names << name(feature);
        QCOMPARE(names, QStringList({"UnsignedValue", "SignedValue", "FlagValue", "ResetCommand",
                                     "GainValue", "LabelText", "ModeSelect", "RawBlock"}));
        QVERIFY(features.front() == camera_.GetNodeByName("UnsignedValue"));
        QVERIFY(features.front() != camera_.GetNodeByName("SignedValue"));
        QVERIFY(!CKorvatinGenICamNodeT().IsValid());
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, CKorvatinGenICamNodeT().DataType());
    }

    void writesNotifyNodesLinkedToTheWrittenOne() {
        CountingCallback guarded, level, high, low, limited, independent, limit;
        CKorvatinGenICamNodeT guardedNode = camera_.GetNodeByName("GuardedValue");
        CKorvatinGenICamNodeT levelNode = camera_.GetNodeByName("ChannelLevel");
        CKorvatinGenICamNodeT highNode = camera_.GetNodeByName("HighBits");
        CKorvatinGenICamNodeT lowNode = camera_.GetNodeByName("LowBits");
        CKorvatinGenICamNodeT limitedNode = camera_.GetNodeByName("LimitedValue");
        CKorvatinGenICamNodeT independentNode = camera_.GetNodeByName("IndependentValue");
        CKorvatinGenICamNodeT limitNode = camera_.GetNodeByName("LimitValue");
        guardedNode.RegisterCallBack(guarded);
        levelNode.RegisterCallBack(level);
        highNode.RegisterCallBack(high);
        lowNode.RegisterCallBack(low);
        limitedNode.RegisterCallBack(limited);
        independentNode.RegisterCallBack(independent);
        limitNode.RegisterCallBack(limit);

        camera_.SetUInt32("AvailabilitySwitch", 0); // pIsAvailable
        QCOMPARE(guarded.calls, 1);
        QCOMPARE(guardedNode.AccessMode(), CKorvatinGenICamNodeT::NA);
        camera_.SetUInt32("AvailabilitySwitch", 1);
        QCOMPARE(guarded.calls, 2);

        camera_.SetUInt32("ChannelSelector", 2); // pSelected
        QCOMPARE(level.calls, 1);

        lowNode.SetUInt32(0x12); // same register
        QCOMPARE(low.calls, 1);
        QCOMPARE(high.calls, 1);
        highNode.SetUInt32(0x34);
        QCOMPARE(low.calls, 2);
        QCOMPARE(high.calls, 2);
        QCOMPARE(lowNode.GetUInt32(), 0x12u);

        limitNode.SetUInt32(20); // pMax
        QCOMPARE(limit.calls, 1);
        QCOMPARE(limited.calls, 1);
        QCOMPARE(limitedNode.GetUInt32Max(), 20u);
        limitedNode.SetUInt32(5); // the other way round nothing depends
        QCOMPARE(limited.calls, 2);
        QCOMPARE(limit.calls, 1);

        QCOMPARE(independent.calls, 0);
        QCOMPARE(guarded.calls, 2);
        QCOMPARE(level.calls, 1);

        // Registering another callback through the same handle replaces the first.
        CountingCallback replacement;
        independentNode.RegisterCallBack(replacement);
        independentNode.SetUInt32(8);
        QCOMPARE(independent.calls, 0);
        QCOMPARE(replacement.calls, 1);

        for (CKorvatinGenICamNodeT* node : {&guardedNode, &levelNode, &highNode, &lowNode,
                                            &limitedNode, &independentNode, &limitNode})
            node->DeregisterCallBack();
        camera_.SetUInt32("AvailabilitySwitch", 0);
        QCOMPARE(guarded.calls, 2);
        camera_.SetUInt32("AvailabilitySwitch", 1);
    }

    void writesOnAnotherThreadAreToldOnTheHomeThread() {
        CountingCallback independent, limit, limited;
        CKorvatinGenICamNodeT independentNode = camera_.GetNodeByName("IndependentValue");
        CKorvatinGenICamNodeT limitNode = camera_.GetNodeByName("LimitValue");
        CKorvatinGenICamNodeT limitedNode = camera_.GetNodeByName("LimitedValue");
        independentNode.RegisterCallBack(independent);
        limitNode.RegisterCallBack(limit);
        limitedNode.RegisterCallBack(limited);
        // The home thread's queue: what the SDK posts waits here until this thread runs it.
        std::vector<std::function<void()>> posted;
        std::mutex postedMutex;
        CKorvatinGenICamNodeCallback::SetHomeThread([&](std::function<void()> deliver) {
            std::lock_guard<std::mutex> lock(postedMutex);
            posted.push_back(std::move(deliver));
        });
        auto runPosted = [&] {
            std::vector<std::function<void()>> due;
            {
                std::lock_guard<std::mutex> lock(postedMutex);
                due.swap(posted);
            }
            for (const auto& deliver : due)
                deliver();
            return due.size();
        };

        // A write on the home thread is told at once, there.
        independentNode.SetUInt32(3);
        QCOMPARE(independent.calls, 1);
        QCOMPARE(runPosted(), size_t(0));

        // Writes on another thread are told to nobody there; one delivery is posted, and
        // running it tells each due callback once, on the home thread, written node first.
        std::thread worker([&] {
            limitNode.SetUInt32(30); // pMax of LimitedValue
            limitNode.SetUInt32(40);
            independentNode.SetUInt32(4);
        });
        worker.join();
        QCOMPARE(limit.calls, 0);
        QCOMPARE(limited.calls, 0);
        QCOMPARE(independent.calls, 1);
        QCOMPARE(runPosted(), size_t(1));
        QCOMPARE(limit.calls, 1);
        QCOMPARE(limited.calls, 1);
        QCOMPARE(independent.calls, 2);
        for (const CountingCallback* callback : {&limit, &limited, &independent})
            for (std::thread::id thread : callback->threads)
                QCOMPARE(thread, std::this_thread::get_id());

        // A callback deregistered before the delivery runs is not called.
        std::thread again([&] { limitNode.SetUInt32(50); });
        again.join();
        limitedNode.DeregisterCallBack();
        QCOMPARE(runPosted(), size_t(1));
        QCOMPARE(limit.calls, 2);
        QCOMPARE(limited.calls, 1);

        // Deferred, the home thread's own writes are posted too: a run of them is told once
        // per callback, when the delivery runs; undeferred, they are told at once again.
        CKorvatinGenICamNodeCallback::DeferHomeThreadWrites(true);
        limitNode.SetUInt32(60);
        limitNode.SetUInt32(70);
        independentNode.SetUInt32(6);
        QCOMPARE(limit.calls, 2);
        QCOMPARE(independent.calls, 2);
        QCOMPARE(runPosted(), size_t(1));
        QCOMPARE(limit.calls, 3);
        QCOMPARE(independent.calls, 3);
        CKorvatinGenICamNodeCallback::DeferHomeThreadWrites(false);
        independentNode.SetUInt32(7);
        QCOMPARE(independent.calls, 4);
        QCOMPARE(runPosted(), size_t(0));

        // Without a home thread, the writing thread is told again.
        CKorvatinGenICamNodeCallback::SetHomeThread({});
        std::thread plain([&] { independentNode.SetUInt32(5); });
        plain.join();
        QCOMPARE(independent.calls, 5);
        QVERIFY(independent.threads.back() != std::this_thread::get_id());
        QCOMPARE(runPosted(), size_t(0));
        independentNode.DeregisterCallBack();
        limitNode.DeregisterCallBack();
    }

    void heartbeatDisableIsWrittenAtConnect() {
        QVERIFY(camera_.HeartbeatDisable());
        QCOMPARE(camera_.GetBool("GevGVCPHeartbeatDisable"), true);
        QCOMPARE(camera_.GetUInt32("HeartbeatDisableRegister"), 1u);
    }
};

QTEST_GUILESS_MAIN(TestSdkNodeMapping)
#include "tst_sdknodemapping.moc"
