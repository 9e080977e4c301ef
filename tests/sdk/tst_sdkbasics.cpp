// The SDK's plain types and helpers: exception, data type words, environment, interfaces.
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatingigevision.h>
#include <korvatin/qrnutil.h>

#include <QtTest>

#include <arpa/inet.h>

#include <cstring>

class TestSdkBasics : public QObject {
    Q_OBJECT

private slots:
    void exceptionCarriesMessageAndCode() {
        const CKorvatinException fromText("Width: feature is not writable", QRN_ERR_ACCESS);
        QCOMPARE(QString(fromText.what()), QString("Width: feature is not writable"));
        QCOMPARE(fromText.Code(), QRN_ERR_ACCESS);
        const CKorvatinException fromString(std::string("session failed"), QRN_ERR_SESSION);
        QCOMPARE(fromString.Code(), QRN_ERR_SESSION);
        const std::exception& base = fromString;
        QCOMPARE(QString(base.what()), QString("session failed"));
        const CKorvatinException empty;
        QCOMPARE(QString(empty.what()), QString());
        QCOMPARE(empty.Code(), QRN_OK);
        const CKorvatinException copy = fromText;
        QCOMPARE(QString(copy.what()), QString(fromText.what()));
    }

    void dataTypeWordsAreTheSystemsOwn() {
        const char* words[] = {"UInt32", "Int32",       "Boolean",   "Command", "Float",
                               "String", "Enumeration", "EnumEntry", "Category"};
        for (int type = 0; type <= 8; ++type)
            QCOMPARE(QString(QrnParamDataTypeName(static_cast<QrnParamDataType>(type))),
                     QString(words[type]));
        QCOMPARE(QString(QrnParamDataTypeName(QRN_PARAM_OTHER)), QString("Other"));
    }

    void layoutsHaveTheirFixedSizes() {
        QCOMPARE(sizeof(GigEVisionDeviceInfo), std::size_t(1720));
        QCOMPARE(sizeof(ListDevicesSettings), std::size_t(32));
        QCOMPARE(offsetof(ListDevicesSettings, timeoutMs), std::size_t(0));
        QCOMPARE(offsetof(QrnParamAttribute, dataType), std::size_t(0));
    }

    void environmentHelpersReadVariables() {
        qputenv("KORVATIN_TEST_VALUE", "text");
        bool found = false;
        QCOMPARE(QString::fromStdString(CQrnUtil::GetEnv("KORVATIN_TEST_VALUE", &found)),
                 QString("text"));
        QVERIFY(found);
        qunsetenv("KORVATIN_TEST_VALUE");
        QCOMPARE(QString::fromStdString(CQrnUtil::GetEnv("KORVATIN_TEST_VALUE", &found)),
                 QString());
        QVERIFY(!found);
        QCOMPARE(CQrnUtil::EnvToInt("KORVATIN_TEST_VALUE", 17), 17);
        qputenv("KORVATIN_TEST_VALUE", "42");
        QCOMPARE(CQrnUtil::EnvToInt("KORVATIN_TEST_VALUE"), 42);
        qputenv("KORVATIN_TEST_VALUE", "0x1F");
        QCOMPARE(CQrnUtil::EnvToInt("KORVATIN_TEST_VALUE"), 31);
        qputenv("KORVATIN_TEST_VALUE", "-3");
        QCOMPARE(CQrnUtil::EnvToInt("KORVATIN_TEST_VALUE"), -3);
        qputenv("KORVATIN_TEST_VALUE", "12abc");
        QCOMPARE(CQrnUtil::EnvToInt("KORVATIN_TEST_VALUE", 5), 5);
        qputenv("KORVATIN_TEST_VALUE", "99999999999");
        QCOMPARE(CQrnUtil::EnvToInt("KORVATIN_TEST_VALUE"), -1);
        qunsetenv("KORVATIN_TEST_VALUE");
    }

    void interfaceListHasLoopbackAndConsistentFields() {
        const auto nics = CKorvatinGigEVision::EnumerateNICs();
        bool loopback = false;
        for (const auto& nic : nics) {
            in_addr address{};
            QCOMPARE(inet_pton(AF_INET, nic.name, &address), 1);
            QCOMPARE(ntohl(address.s_addr), nic.address);
            in_addr mask{};
            QCOMPARE(inet_pton(AF_INET, nic.subnetMask, &mask), 1);
            QCOMPARE(ntohl(mask.s_addr), nic.mask);
            QVERIFY(std::strlen(nic.systemName) > 0);
            if (QString(nic.name) == "127.0.0.1") {
                loopback = true;
                QCOMPARE(QString(nic.systemName), QString("lo"));
                QCOMPARE(QString(nic.subnetMask), QString("255.0.0.0"));
                for (uint8_t byte : nic.mac)
                    QCOMPARE(byte, uint8_t(0));
            }
        }
        QVERIFY(loopback);
    }

    void addedLoopbackAddressIsListed() {
        if (!TestNetwork::isIsolated())
            QSKIP("adding a loopback address needs a private network namespace");
        QVERIFY(TestNetwork::addLoopbackAddress("127.0.0.99"));
        bool listed = false;
        for (const auto& nic : CKorvatinGigEVision::EnumerateNICs())
            if (QString(nic.name) == "127.0.0.99")
                listed = QString(nic.systemName) == "lo" && nic.mask == 0xFFFFFFFFu;
        QVERIFY(listed);
    }

    void versionNamesAravis() {
        const QString version(CKorvatinCamera::SDKVersion());
        QVERIFY2(version.contains("Aravis 0.8."), qPrintable(version));
        QVERIFY2(version.contains("2.11.04"), qPrintable(version));
    }

    void accessWithoutConnectionIsAnError() {
        CKorvatinCamera camera;
        QVERIFY(!camera.IsConnected());
        QCOMPARE(camera.XmlIndexLoaded(), 0);
        QCOMPARE(camera.ClearGvcpReplyBuffer(), QRN_OK);
        try {
            camera.GetUInt32("Width");
            QFAIL("a feature was read without a camera");
        } catch (const CKorvatinException& e) {
            QCOMPARE(e.Code(), QRN_ERR_NOT_CONNECTED);
        }
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.GetGENiCAMRoot());
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.CreateGeniCamTreeFromFile("x.xml"));
        camera.Disconnect();
        GigEVisionDeviceInfo bad{};
        std::strcpy(bad.currentIp, "not-an-address");
        std::strcpy(bad.hostInterfaceAddress, "127.0.0.1");
        try {
            camera.Connect(bad, nullptr);
            QFAIL("a descriptor without a valid address was accepted");
        } catch (const CKorvatinException& e) {
            QCOMPARE(e.Code(), QRN_ERR_INVALID);
            QVERIFY2(QString(e.what()).contains("not-an-address"), e.what());
        }
        QVERIFY(!camera.IsConnected());
    }
};

QTEST_GUILESS_MAIN(TestSdkBasics)
#include "tst_sdkbasics.moc"
