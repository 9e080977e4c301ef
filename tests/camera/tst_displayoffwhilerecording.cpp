// Switching the display off while recording: the picture kept on screen must not share pixels
// with the holder the conversion thread writes the next recorded frames into. Built with
// ThreadSanitizer too, which reports any read of those pixels racing with the conversion.
#include "korvatinframeconverted.h"
#include "qwidgetgrabbedframe.h"
#include "streamingfixture.h"
#include "testnetwork.h"

#include <QCryptographicHash>
#include <QtTest>

#include <memory>

namespace {

const char* const kAddress = "127.0.5.24";
const int kWidth = 160;
const int kHeight = 120;

QByteArray digest(const QImage& image) {
    QCryptographicHash hash(QCryptographicHash::Sha1);
    for (int y = 0; y < image.height(); ++y)
        hash.addData(QByteArrayView(reinterpret_cast<const char*>(image.constScanLine(y)),
                                    image.bytesPerLine()));
    return hash.result();
}

} // namespace

class TestDisplayOffWhileRecording : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace (run through ctest as root)");
        QString error;
        QVERIFY2(fixture_.startCamera(
                     kAddress,
                     {"--width", QString::number(kWidth), "--height", QString::number(kHeight)},
                     &error),
                 qPrintable(error));
    }

    void cleanupTestCase() { fixture_.stopCamera(); }

    void theKeptPictureNeverReadsAHolderGivenBack() {
        QString error;
        auto session = fixture_.connect(QByteArray(), &error);
        QVERIFY2(session, qPrintable(error));
        struct Disconnect {
            CKorvatinCameraViewlane* session;
            ~Disconnect() { session->DisconnectDevice(); }
        } disconnect{session.get()};
        session->SetEnumByString("PixelFormat", "Mono8");
        session->SetUInt32("FrameRate", 200);
        session->StartAcquisition();
        // While recording, the holders carry the converted pixels the display shows directly.
        session->StartRecording(fixture_.tempPath("display-off.avi").toLocal8Bit().constData(),
                                CKorvatinCameraViewlane::kBayerNone, 0);

        CQwidgetGrabbedFrame widget;
        widget.resize(kWidth * 2, kHeight * 2);
        widget.SetConversionContext(session->ConversionContext());
        for (int round = 0; round < 20; ++round) {
            // Display on: the tick hands the widget the oldest ready frame.
            CKorvatinFrameConverted* frame = session->TakeDisplayFrame();
            QElapsedTimer waited;
            waited.start();
            while (!frame && waited.elapsed() < 10000) {
                QTest::qWait(1);
                frame = session->TakeDisplayFrame();
            }
            QVERIFY(frame);
            if (CKorvatinFrameConverted* previous = widget.SetFrame(frame))
                session->ReturnDisplayFrame(previous);
            // Display off: the holder goes back to the session, the picture stays.
            CKorvatinFrameConverted* taken = widget.TakeFrame();
            QCOMPARE(taken, frame);
            session->ReturnDisplayFrame(taken);
            QVERIFY(widget.Image());
            const QByteArray shown = digest(*widget.Image());

            // The conversion thread goes on recording into the holders, the one given back
            // among them once every holder has been used again; meanwhile the widget repaints
            // (a resize, Reset View) and reads its picture each time.
            const uint32_t recorded = session->RecordedFileFrames();
            int repaints = 0;
            while (session->RecordedFileFrames() <
                   recorded + CKorvatinCameraViewlane::kConvertedFrameCount + 1) {
                widget.resize(kWidth * 2 + (repaints & 1), kHeight * 2);
                widget.ResetView();
                QCOMPARE(digest(*widget.Image()), shown);
                ++repaints;
                QCoreApplication::processEvents();
                // Ready frames go back as the display would take them while off: nothing is shown.
                if (CKorvatinFrameConverted* waiting = session->TakeDisplayFrame())
                    session->ReturnDisplayFrame(waiting);
            }
            QVERIFY(repaints > 0);
            QCOMPARE(digest(*widget.Image()), shown);
        }
        QVERIFY(session->IsRecording());
        session->StopRecording();
    }

private:
    StreamingFixture fixture_;
};

QTEST_MAIN(TestDisplayOffWhileRecording)
#include "tst_displayoffwhilerecording.moc"
