// The streaming commands of viewlane-cli: grab, record and save-frame, through the viewer's
// session.
#include "clistreamcommands.h"

#include "appsettings.h"
#include "clicommands.h"
#include "clijson.h"
#include "framehistogram.h"
#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"
#include "streamstatistics.h"

#include <korvatin/korvatinexception.h>
#include <korvatin/korvatinframe.h>

#include <QFileInfo>
#include <QThread>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ostream>

namespace {

using Clock = std::chrono::steady_clock;

// Set by Interrupt() (a signal handler), read by the command loops.
std::atomic<bool> interrupted{false};

// How often the command loops look at the session's counters and lists.
constexpr unsigned long kPollUs = 200;

std::string fixed(double value) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.2f", value);
    return text;
}

// Stands in for the viewer's display: keeps the frame it took last and gives the one before
// back, so the pipeline runs exactly as with a window on screen.
class DisplayConsumer {
public:
    explicit DisplayConsumer(CKorvatinCameraViewlane& session) : session_(session) {}
    ~DisplayConsumer() { Release(); }

    // Takes the next ready frame, if any; true when there was one.
    bool Poll() {
        CKorvatinFrameConverted* frame = session_.TakeDisplayFrame();
        if (!frame)
            return false;
        if (current_)
            session_.ReturnDisplayFrame(current_);
        current_ = frame;
        return true;
    }
    // Hands the current frame over to the caller, who gives it back with ReturnDisplayFrame.
    CKorvatinFrameConverted* Take() {
        CKorvatinFrameConverted* frame = current_;
        current_ = nullptr;
        return frame;
    }
    void Release() {
        if (current_)
            session_.ReturnDisplayFrame(current_);
        current_ = nullptr;
    }

private:
    CKorvatinCameraViewlane& session_;
    CKorvatinFrameConverted* current_ = nullptr;
};

// Streaming for the length of a command: started in the constructor, stopped in the destructor
// in the viewer's order (display frames back, then DisconnectDevice), also when a command fails.
class Streaming {
public:
    explicit Streaming(CKorvatinCameraViewlane& session) : session_(session), display_(session) {
        session_.ClearDroppedFrameCount();
        try {
            session_.StartAcquisition();
        } catch (...) {
            session_.DisconnectDevice();
            throw;
        }
    }
    ~Streaming() {
        display_.Release();
        session_.DisconnectDevice();
    }
    DisplayConsumer& Display() { return display_; }

private:
    CKorvatinCameraViewlane& session_;
    DisplayConsumer display_;
};

// Watches the frame counter: throws when no frame arrived for the stream time-out.
// Hears the session's connection loss from its construction on; made before the stream starts,
// so that a loss during the start is not missed.
class ConnectionLossFlag {
public:
    ConnectionLossFlag(CKorvatinCameraViewlane& session, std::string device)
        : session_(session), device_(std::move(device)) {
        session_.SetConnectionCallBackFunc(
            [](void* context, void*) { static_cast<std::atomic<bool>*>(context)->store(true); },
            &lost_);
    }
    ~ConnectionLossFlag() { session_.SetConnectionCallBackFunc(nullptr, nullptr); }
    ConnectionLossFlag(const ConnectionLossFlag&) = delete;
    ConnectionLossFlag& operator=(const ConnectionLossFlag&) = delete;

    // Set on an SDK thread when the device stops answering its control channel.
    bool Lost() const { return lost_; }
    std::string Text() const { return "the connection to device " + device_ + " was lost"; }

private:
    CKorvatinCameraViewlane& session_;
    std::string device_;
    std::atomic<bool> lost_{false};
};

class StreamWatchdog {
public:
    StreamWatchdog(CKorvatinCameraViewlane& session, const ConnectionLossFlag& loss,
                   std::string device, int32_t timeoutMs)
        : session_(session), loss_(loss), device_(std::move(device)), timeoutMs_(timeoutMs),
          lastChange_(Clock::now()) {}

    // The frame count now; throws when the connection was lost, or when the count has not
    // moved for the time-out.
    uint32_t Check() {
        if (loss_.Lost())
            throw CKorvatinException(loss_.Text(), QRN_ERR_NOT_CONNECTED);
        const uint32_t count = session_.grabbedFrameCount;
        const Clock::time_point now = Clock::now();
        if (count != lastCount_) {
            lastCount_ = count;
            lastChange_ = now;
        } else if (now - lastChange_ > std::chrono::milliseconds(timeoutMs_)) {
            throw CKorvatinException("device " + device_ + " does not stream: no frame within " +
                                         std::to_string(timeoutMs_) + " ms",
                                     QRN_ERR_TIMEOUT);
        }
        return count;
    }

private:
    CKorvatinCameraViewlane& session_;
    const ConnectionLossFlag& loss_;
    std::string device_;
    int32_t timeoutMs_;
    uint32_t lastCount_ = 0;
    Clock::time_point lastChange_;
};

// The frame rate as the frame counter shows it: frames counted between the first change of the
// counter seen and the last, over the time between the two.
class RateMeter {
public:
    explicit RateMeter(uint32_t startCount) : firstCount_(startCount), lastCount_(startCount) {}

    void Sample(uint32_t count, Clock::time_point now) {
        if (count == lastCount_)
            return;
        if (!started_) {
            // The first frame seen starts the clock; it is not counted as an interval.
            started_ = true;
            firstCount_ = count;
            firstTime_ = now;
        }
        lastCount_ = count;
        lastTime_ = now;
    }
    double FramesPerSecond() const {
        const double seconds = std::chrono::duration<double>(lastTime_ - firstTime_).count();
        return started_ && seconds > 0 ? double(lastCount_ - firstCount_) / seconds : 0.0;
    }

private:
    bool started_ = false;
    uint32_t firstCount_;
    uint32_t lastCount_;
    Clock::time_point firstTime_;
    Clock::time_point lastTime_;
};

// Refuses, naming it, a pixel format the conversion cannot read: a recording or a TIFF or BMP
// of it would hold no picture. A camera without an integer PixelFormat is left to the
// conversion's own check.
void requireConvertibleFormat(CKorvatinCameraViewlane& session) {
    uint32_t pixelFormat = 0;
    try {
        pixelFormat = session.GetUInt32("PixelFormat");
    } catch (const CKorvatinException&) {
        return;
    }
    const std::string refusal = CKorvatinFrame::ConversionRefusal(pixelFormat);
    if (!refusal.empty())
        throw CKorvatinException(refusal, QRN_ERR_UNSUPPORTED);
}

void printFigures(std::ostream& out, uint32_t received, uint32_t dropped, double fps,
                  double payload) {
    out << "frames received: " << received << '\n'
        << "frames dropped: " << dropped << '\n'
        << "frames per second: " << fixed(fps) << '\n'
        << "megabytes per second: " << fixed(fps * payload / 1e6) << '\n';
}

// Packets the stream gave up on since `start` (the SDK's totals are never cleared).
uint64_t missingPackets(CKorvatinCameraViewlane& session,
                        const CKorvatinCamera::StreamTotals& start) {
    return session.GetStreamTotals().missingPackets - start.missingPackets;
}

// What the network did, as the stream counted it since the start of the command: many packets
// resent means a lossy link; frames dropped with few resends, a host that fell behind; packets
// missing, resends that never came.
void printStreamStatistics(std::ostream& out, CKorvatinCameraViewlane& session,
                           const CKorvatinCamera::StreamTotals& start) {
    out << "packets resent: " << session.GetResentPacketCount() << '\n'
        << "frames incomplete: " << session.GetIncompleteFrameCount() << '\n'
        << "packets missing: " << missingPackets(session, start) << '\n';
}

// The figures of grab as one JSON document, the rates rounded as in the text form.
void writeGrabJson(std::ostream& out, uint32_t received, uint32_t dropped, double fps,
                   double payload, CKorvatinCameraViewlane& session,
                   const CKorvatinCamera::StreamTotals& start) {
    const auto rounded = [](double value) { return std::round(value * 100.0) / 100.0; };
    CCliJson::Write(out,
                    QJsonObject{{"framesReceived", qint64(received)},
                                {"framesDropped", qint64(dropped)},
                                {"framesPerSecond", rounded(fps)},
                                {"megabytesPerSecond", rounded(fps * payload / 1e6)},
                                {"packetsResent", qint64(session.GetResentPacketCount())},
                                {"framesIncomplete", qint64(session.GetIncompleteFrameCount())},
                                {"packetsMissing", qint64(missingPackets(session, start))}});
}

} // namespace

CCliStreamCommands::CCliStreamCommands(const CCliOptions& options, CCliCommands& discovery,
                                       std::ostream& out)
    : options_(options), discovery_(discovery), out_(out) {}

// The session goes before the settings it was made from.
CCliStreamCommands::~CCliStreamCommands() {
    session_.reset();
    settings_.reset();
}

void CCliStreamCommands::Interrupt() {
    interrupted = true;
}

CKorvatinCameraViewlane& CCliStreamCommands::Connect(const std::string& device) {
    QString settingsFile;
    if (!options_.settingsFile.empty()) {
        settingsFile = QString::fromLocal8Bit(options_.settingsFile.c_str());
        if (!QFileInfo(settingsFile).isReadable())
            throw CKorvatinException("cannot read the settings file \"" + options_.settingsFile +
                                         "\"",
                                     QRN_ERR_NOT_FOUND);
    }
    // Without a file every key keeps the viewer's default.
    settings_ = std::make_unique<CAppSettings>(settingsFile);
    session_ = std::make_unique<CKorvatinCameraViewlane>(*settings_);
    const GigEVisionDeviceInfo info = discovery_.FindDevice(device);
    CCliCommands::ConnectForWriting(device, info, [&] { session_->ConnectDevice(info); });
    if (!options_.pixelFormat.empty())
        session_->SetEnumByString("PixelFormat", options_.pixelFormat.c_str());
    return *session_;
}

void CCliStreamCommands::Grab(const std::string& device) {
    CKorvatinCameraViewlane& session = Connect(device);
    const uint32_t wanted = uint32_t(options_.frames);
    const double payload = CStreamStatistics::PayloadBytes(session);

    const ConnectionLossFlag loss(session, device);
    const CKorvatinCamera::StreamTotals start = session.GetStreamTotals();
    Streaming streaming(session);
    StreamWatchdog watchdog(session, loss, device, options_.streamTimeoutMs);
    RateMeter meter(0);
    uint32_t count = 0;
    for (;;) {
        streaming.Display().Poll();
        count = watchdog.Check();
        meter.Sample(count, Clock::now());
        if (count >= wanted || interrupted)
            break;
        QThread::usleep(kPollUs);
    }
    if (options_.json) {
        writeGrabJson(out_, count, session.GetDroppedFrameCount(), meter.FramesPerSecond(), payload,
                      session, start);
        return;
    }
    printFigures(out_, count, session.GetDroppedFrameCount(), meter.FramesPerSecond(), payload);
    printStreamStatistics(out_, session, start);
}

void CCliStreamCommands::Record(const std::string& device, const std::string& file) {
    // Said before the device is asked anything, in one line naming the file.
    const std::string reason = CKorvatinCameraViewlane::WhyCannotWrite(file.c_str());
    if (!reason.empty())
        throw CKorvatinException("cannot create \"" + file + "\": " + reason, QRN_ERR_IO);
    CKorvatinCameraViewlane& session = Connect(device);
    requireConvertibleFormat(session);
    const double payload = CStreamStatistics::PayloadBytes(session);
    // RecordStarted(false) arrives on the conversion thread when the frame limit ends the
    // recording, on this thread when it is stopped here; either way only this flag is touched.
    std::atomic<bool> ended{false};
    QObject::connect(
        &session, &CKorvatinCameraViewlane::RecordStarted, &session,
        [&ended](bool started) {
            if (!started)
                ended = true;
        },
        Qt::DirectConnection);

    const ConnectionLossFlag loss(session, device);
    Streaming streaming(session);
    const uint32_t startCount = session.grabbedFrameCount;
    const uint32_t startDropped = session.GetDroppedFrameCount();
    try {
        session.StartRecording(file.c_str(), options_.bayerMode, options_.frames);
    } catch (const CKorvatinException& e) {
        // The file could not be opened, or the session refused the recording before opening it
        // (the camera could not be read, buffers too small for colour).
        const QString reason = session.RecordingError();
        if (std::strcmp(e.what(), CKorvatinCameraViewlane::kAviOpenFailed) != 0)
            throw CKorvatinException("cannot record to \"" + file + "\": " + e.what(), e.Code());
        throw CKorvatinException(
            "cannot create \"" + file + "\": " + e.what() +
                (reason.isEmpty() ? std::string() : " (" + reason.toStdString() + ")"),
            e.Code());
    }
    const Clock::time_point recordingStarted = Clock::now();
    StreamWatchdog watchdog(session, loss, device, options_.streamTimeoutMs);
    RateMeter meter(startCount);
    uint32_t count = startCount;
    // Why a recording that had frames ended early; empty when it ended as asked.
    std::string broken;
    while (!ended) {
        streaming.Display().Poll();
        if (interrupted) {
            session.StopRecording();
            break;
        }
        if (loss.Lost()) {
            broken = loss.Text();
            break;
        }
        // A stream that never delivered throws on; one that stopped after frames is reported
        // with what the file holds.
        try {
            count = watchdog.Check();
        } catch (const CKorvatinException&) {
            if (count == startCount)
                throw;
            broken = "device " + device + " stopped streaming (no frame within " +
                     std::to_string(options_.streamTimeoutMs) + " ms)";
            break;
        }
        meter.Sample(count, Clock::now());
        QThread::usleep(kPollUs);
    }
    // The conversion thread ends a recording whose frames the file cannot take (a new size or
    // format); it says why.
    const QString endReason = session.TakeRecordingEndReason();
    if (!endReason.isEmpty()) {
        printFigures(out_, count - startCount, session.GetDroppedFrameCount() - startDropped,
                     meter.FramesPerSecond(), payload);
        throw CKorvatinException("the recording stopped: " + endReason.toStdString(), QRN_ERR_IO);
    }
    if (!broken.empty()) {
        session.StopRecording();
        printFigures(out_, count - startCount, session.GetDroppedFrameCount() - startDropped,
                     meter.FramesPerSecond(), payload);
        const uint32_t inFile = session.RecordedFileFrames();
        throw CKorvatinException(broken + " after " + std::to_string(count - startCount) +
                                     " frames; " + file + " holds the " + std::to_string(inFile) +
                                     " frames recorded until then",
                                 QRN_ERR_IO);
    }
    printFigures(out_, count - startCount, session.GetDroppedFrameCount() - startDropped,
                 meter.FramesPerSecond(), payload);
    const double recordingSeconds =
        std::chrono::duration<double>(Clock::now() - recordingStarted).count();
    if (options_.frames > 0) {
        const int32_t recorded = session.FramesRecorded();
        out_ << "frames recorded: " << recorded << '\n'
             << "recorded frames per second: "
             << fixed(recordingSeconds > 0 ? recorded / recordingSeconds : 0.0) << '\n';
    }
    out_ << "recorded to " << file << '\n';
}

void CCliStreamCommands::SaveFrame(const std::string& device, const std::string& file) {
    CKorvatinCameraViewlane& session = Connect(device);
    // Raw frames are the bytes as received, whatever their format.
    if (options_.format != "raw")
        requireConvertibleFormat(session);
    const ConnectionLossFlag loss(session, device);
    Streaming streaming(session);
    StreamWatchdog watchdog(session, loss, device, options_.streamTimeoutMs);
    while (!streaming.Display().Poll()) {
        watchdog.Check();
        if (interrupted)
            return;
        QThread::usleep(kPollUs);
    }

    // The frame goes back to the session whatever happens while it is saved.
    struct Returned {
        CKorvatinCameraViewlane& session;
        CKorvatinFrameConverted* frame;
        ~Returned() { session.ReturnDisplayFrame(frame); }
    } holder{session, streaming.Display().Take()};
    const CKorvatinFrame& raw = *holder.frame->SourceRawFrame();
    const int format = options_.format == "raw" ? 0 : options_.format == "tif" ? 1 : 2;
    session.SaveFrame(raw, file.c_str(), format, options_.bayerMode);
    out_ << "frame saved to " << file << " (" << raw.Width() << " x " << raw.Height() << ")\n";
}

void CCliStreamCommands::Histogram(const std::string& device) {
    CKorvatinCameraViewlane& session = Connect(device);
    const ConnectionLossFlag loss(session, device);
    const uint32_t wanted = options_.frames > 0 ? uint32_t(options_.frames) : 1;
    CFrameHistogram histogram;
    {
        Streaming streaming(session);
        StreamWatchdog watchdog(session, loss, device, options_.streamTimeoutMs);
        while (histogram.Frames() < wanted) {
            if (!streaming.Display().Poll()) {
                watchdog.Check();
                if (interrupted)
                    return;
                QThread::usleep(kPollUs);
                continue;
            }
            CKorvatinFrameConverted* frame = streaming.Display().Take();
            const CKorvatinFrame& raw = *frame->SourceRawFrame();
            const bool added =
                histogram.Add(raw, options_.bayerMode, {}, session.ConversionContext());
            const uint32_t type = raw.PixelType();
            session.ReturnDisplayFrame(frame);
            if (!added) {
                const std::string refusal = CKorvatinFrame::ConversionRefusal(type);
                throw CKorvatinException(
                    refusal.empty() ? "the frame cannot be read for a histogram" : refusal,
                    QRN_ERR_UNSUPPORTED);
            }
        }
    }
    for (const CFrameHistogram::Channel& channel : histogram.Channels())
        out_ << CFrameHistogram::Line(channel.name, CFrameHistogram::FiguresOf(channel.bins))
             << '\n';
    if (!options_.bins)
        return;
    for (const CFrameHistogram::Channel& channel : histogram.Channels()) {
        for (size_t level = 0; level < channel.bins.size(); ++level) {
            if (channel.bins[level] != 0)
                out_ << channel.name << ' ' << level << ' ' << channel.bins[level] << '\n';
        }
    }
}
