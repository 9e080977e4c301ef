// viewlane-cli histogram: the histogram over N received frames, as the window computes it.
#include "clihistogramcommand.h"

#include "appsettings.h"
#include "clicommands.h"

#include <framehistogram.h>
#include <korvatincameraviewlane.h>
#include <korvatinframeconverted.h>

#include <korvatin/korvatinexception.h>

#include <QFileInfo>
#include <QThread>

#include <chrono>
#include <ostream>

namespace {

using Clock = std::chrono::steady_clock;

// How often the loop looks for a ready frame.
constexpr unsigned long kPollUs = 200;

// Streaming for the length of the command; the session disconnects however it ends.
struct Streaming {
    explicit Streaming(CKorvatinCameraViewlane& session) : session(session) {
        try {
            session.StartAcquisition();
        } catch (...) {
            session.DisconnectDevice();
            throw;
        }
    }
    ~Streaming() { session.DisconnectDevice(); }
    CKorvatinCameraViewlane& session;
};

} // namespace

CCliHistogramCommand::CCliHistogramCommand(const CCliOptions& options, CCliCommands& discovery,
                                           std::ostream& out)
    : options_(options), discovery_(discovery), out_(out) {}

void CCliHistogramCommand::Histogram(const std::string& device) {
    QString settingsFile;
    if (!options_.settingsFile.empty()) {
        settingsFile = QString::fromLocal8Bit(options_.settingsFile.c_str());
        if (!QFileInfo(settingsFile).isReadable())
            throw CKorvatinException("cannot read the settings file \"" + options_.settingsFile +
                                         "\"",
                                     QRN_ERR_NOT_FOUND);
    }
    const CAppSettings settings(settingsFile);
    CKorvatinCameraViewlane session(settings);
    session.ConnectDevice(discovery_.FindDevice(device));
    if (!options_.pixelFormat.empty())
        session.SetEnumByString("PixelFormat", options_.pixelFormat.c_str());

    const uint32_t wanted = options_.frames > 0 ? uint32_t(options_.frames) : 1;
    CFrameHistogram histogram;
    {
        Streaming streaming(session);
        Clock::time_point lastFrame = Clock::now();
        while (histogram.Frames() < wanted) {
            CKorvatinFrameConverted* frame = session.TakeDisplayFrame();
            if (frame == nullptr) {
                if (Clock::now() - lastFrame > std::chrono::milliseconds(options_.streamTimeoutMs))
                    throw CKorvatinException("device " + device +
                                                 " does not stream: no frame within " +
                                                 std::to_string(options_.streamTimeoutMs) + " ms",
                                             QRN_ERR_TIMEOUT);
                QThread::usleep(kPollUs);
                continue;
            }
            lastFrame = Clock::now();
            const CKorvatinFrame& raw = *frame->SourceRawFrame();
            const bool added =
                histogram.Add(raw, options_.bayerMode, {}, session.ConversionContext());
            const uint32_t type = raw.PixelType();
            session.ReturnDisplayFrame(frame);
            if (!added)
                throw CKorvatinException(CKorvatinFrame::ConversionRefusal(type).empty()
                                             ? "the frame cannot be read for a histogram"
                                             : CKorvatinFrame::ConversionRefusal(type),
                                         QRN_ERR_UNSUPPORTED);
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
