// Memory benchmark: the camera session streams for minutes while a display stand-in takes and
// returns frames at 60 Hz; the process' resident memory is sampled and the session's buffers
// and frame wrappers are counted all along.
#include "appsettings.h"
#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"
#include "loopbackdevice.h"

#include <korvatin/gigevisiondeviceinfo.h>
#include <korvatin/korvatinexception.h>
#include <korvatin/korvatinframe.h>

#include <QCoreApplication>
#include <QSet>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string address;
    double seconds = 300;      // streaming time
    double warmupSeconds = 20; // samples before this are the warm-up
    double sampleSeconds = 5;  // between two memory samples
    double displayHz = 60;     // display hand-offs per second
    uint32_t frameRate = 60;   // FrameRate set on the camera (0: as fast as it sends)
    std::string pixelFormat = "Mono8";
};

void usage() {
    std::fprintf(stderr,
                 "usage: korvatin-memory-bench ADDRESS [--seconds S] [--warmup S] [--sample S]\n"
                 "       [--display-hz F] [--frame-rate F] [--pixel-format NAME]\n"
                 "KORVATIN_BENCH_SECONDS, when set, is the default of --seconds (300).\n");
}

bool parse(int argc, char** argv, Options& options) {
    if (const char* env = std::getenv("KORVATIN_BENCH_SECONDS"))
        options.seconds = std::atof(env);
    if (argc < 2)
        return false;
    options.address = argv[1];
    for (int i = 2; i < argc; ++i) {
        const std::string name = argv[i];
        if (i + 1 >= argc)
            return false;
        const char* value = argv[++i];
        if (name == "--seconds")
            options.seconds = std::atof(value);
        else if (name == "--warmup")
            options.warmupSeconds = std::atof(value);
        else if (name == "--sample")
            options.sampleSeconds = std::atof(value);
        else if (name == "--display-hz")
            options.displayHz = std::atof(value);
        else if (name == "--frame-rate")
            options.frameRate = uint32_t(std::atoi(value));
        else if (name == "--pixel-format")
            options.pixelFormat = value;
        else
            return false;
    }
    return options.seconds > 0 && options.sampleSeconds > 0 && options.displayHz > 0;
}

// A line "NAME:   N kB" of /proc/self/status, in KiB; 0 when absent.
long statusKib(const char* name) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const size_t length = std::strlen(name);
    while (std::getline(status, line)) {
        if (line.compare(0, length, name) == 0 && line.size() > length && line[length] == ':')
            return std::atol(line.c_str() + length + 1);
    }
    return 0;
}

// Resident KiB of the mappings of sockets: the packet ring Aravis' stream maps when it may open
// a packet socket (as root), which counts as file-backed memory.
long socketMappingKib() {
    std::ifstream smaps("/proc/self/smaps");
    std::string line;
    bool socket = false;
    long total = 0;
    while (std::getline(smaps, line)) {
        // A mapping's header starts with its range, "start-end" in hex; the lines after it
        // are "Name:   value kB".
        const std::string first = line.substr(0, line.find(' '));
        const bool header = first.find('-') != std::string::npos &&
                            first.find_first_not_of("0123456789abcdef-") == std::string::npos;
        if (header) {
            socket = line.find(" socket:[") != std::string::npos;
        } else if (socket && line.compare(0, 4, "Rss:") == 0) {
            total += std::atol(line.c_str() + 4);
        }
    }
    return total;
}

double mib(double bytes) {
    return bytes / (1024.0 * 1024.0);
}

// What one look at the session's lists found.
struct Census {
    int wrappers = 0;       // places that hold a spare wrapper
    int holders = 0;        // places that hold a converted holder
    bool foreign = false;   // an entry that is none of the session's own wrappers or holders
    bool duplicate = false; // one wrapper or holder listed twice
};

// Counts the places the session's spare wrappers and converted holders are in, from one
// snapshot of its lists (taken under both list locks) and `shown`, the holder the display
// stand-in keeps (or null). Every ready holder and the shown one carry one wrapper as their
// source. A wrapper or holder the conversion thread is carrying from one list to another is in
// no list for that moment, so a count may fall short of the total, never exceed it unless a
// frame is in two places or the session made more than it owns.
Census countFrames(CKorvatinCameraViewlane& session, CKorvatinFrameConverted* shown) {
    const CKorvatinCameraViewlane::PipelineState state = session.Pipeline();
    QSet<const CKorvatinFrame*> own;
    for (int i = 0; i < CKorvatinCameraViewlane::kSpareWrapperCount; ++i)
        own.insert(session.SpareWrapper(i));
    for (int i = 0; i < CKorvatinCameraViewlane::kConvertedFrameCount; ++i)
        own.insert(session.ConvertedFrame(i));

    Census census;
    QSet<const CKorvatinFrame*> seen;
    auto look = [&](const CKorvatinFrame* frame) {
        census.foreign |= !own.contains(frame);
        census.duplicate |= seen.contains(frame);
        seen.insert(frame);
    };
    for (const CKorvatinFrame* frame : state.spareRawFrames)
        look(frame);
    for (const CKorvatinFrame* frame : state.grabbedRawFrames)
        look(frame);
    for (const CKorvatinFrameConverted* frame : state.freeConvertedFrames)
        look(frame);
    for (const CKorvatinFrameConverted* frame : state.readyConvertedFrames)
        look(frame);
    if (shown)
        look(shown);
    const int withSource = int(state.readyConvertedFrames.size()) + (shown ? 1 : 0);
    census.wrappers = int(state.spareRawFrames.size() + state.grabbedRawFrames.size()) + withSource;
    census.holders = int(state.freeConvertedFrames.size()) + withSource;
    return census;
}

struct Sample {
    double seconds;
    long rssKib;
    long anonKib;  // RssAnon: heap, stacks, anonymous mappings
    long shmemKib; // RssShmem: shared mappings (a packet ring of the stream, if any)
    uint32_t received;
    uint32_t dropped;
    size_t sdkBuffers;
};

// Least-squares slope of RSS over time, in KiB per minute, over the samples from `first` on.
double slopeKibPerMinute(const std::vector<Sample>& samples, size_t first) {
    const size_t n = samples.size() > first ? samples.size() - first : 0;
    if (n < 2)
        return 0;
    double st = 0, sr = 0, stt = 0, str = 0;
    for (size_t i = first; i < samples.size(); ++i) {
        const double t = samples[i].seconds / 60.0;
        const double r = double(samples[i].rssKib);
        st += t;
        sr += r;
        stt += t * t;
        str += t * r;
    }
    const double denominator = double(n) * stt - st * st;
    return denominator != 0 ? (double(n) * str - st * sr) / denominator : 0;
}

int run(const Options& options) {
    QTemporaryDir dir;
    const QString settingsPath = dir.filePath("settings.ini");
    // Every key keeps the viewer's default (10 stream buffers, display type from 24 bits).
    CAppSettings settings(settingsPath);
    auto session = std::make_unique<CKorvatinCameraViewlane>(settings);

    const long rssBefore = statusKib("VmRSS");
    session->ConnectDevice(LoopbackDevice(options.address.c_str()));
    session->SetEnumByString("PixelFormat", options.pixelFormat.c_str());
    session->SetUInt32("FrameRate", options.frameRate);
    const uint32_t payload = session->GetUInt32("PayloadSize");
    const long rssConnected = statusKib("VmRSS");

    session->ClearDroppedFrameCount();
    session->StartAcquisition();
    const int32_t rawCount = session->RawFramesAllocated();
    const size_t rawBytes = session->RawFrame(0) ? session->RawFrame(0)->BufferSize() : 0;
    const size_t holderBytes =
        session->ConvertedFrame(0) ? session->ConvertedFrame(0)->BufferSize() : 0;
    // The SDK adds one stream buffer of its own for each one the spare wrappers keep out of the
    // stream, so that the stream has as many to fill as the session allocated.
    const size_t standIns =
        std::min(size_t(rawCount), size_t(CKorvatinCameraViewlane::kSpareWrapperCount));
    const size_t expectedSdkBuffers =
        size_t(rawCount) + size_t(CKorvatinCameraViewlane::kConvertedFrameCount) + standIns;

    std::printf("session: %u x %u max, %s, FrameRate %u, payload %u bytes\n", session->MaxWidth(),
                session->MaxHeight(), options.pixelFormat.c_str(), options.frameRate, payload);
    std::printf("stream buffers: %d configured, %d allocated, %zu bytes each (%.1f MiB in all); "
                "converted holders: %d x %zu bytes (%.1f MiB)\n",
                session->RawFrameBufferCount(), rawCount, rawBytes,
                mib(double(rawCount) * rawBytes), CKorvatinCameraViewlane::kConvertedFrameCount,
                holderBytes,
                mib(double(CKorvatinCameraViewlane::kConvertedFrameCount) * holderBytes));
    std::printf("streaming %.0f s, display hand-off at %.0f Hz, memory sampled every %.0f s, "
                "warm-up %.0f s\n",
                options.seconds, options.displayHz, options.sampleSeconds, options.warmupSeconds);
    std::printf("%8s %10s %10s %10s %9s %8s %12s\n", "seconds", "VmRSS kB", "anon kB", "shmem kB",
                "received", "dropped", "SDK buffers");
    std::fflush(stdout);

    CKorvatinFrameConverted* shown = nullptr;
    std::vector<Sample> samples;
    size_t sdkBuffersMin = SIZE_MAX, sdkBuffersMax = 0;
    int wrappersMax = 0, holdersMax = 0;
    bool foreign = false, duplicate = false;
    uint64_t censuses = 0, handOffs = 0;

    const auto start = Clock::now();
    const auto end = start + std::chrono::duration<double>(options.seconds);
    const auto tick = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(1.0 / options.displayHz));
    auto nextTick = start;
    auto nextSample = start;
    for (;;) {
        const auto now = Clock::now();
        if (now >= nextSample) {
            Sample sample{std::chrono::duration<double>(now - start).count(),
                          statusKib("VmRSS"),
                          statusKib("RssAnon"),
                          statusKib("RssShmem"),
                          session->grabbedFrameCount.load(),
                          session->GetDroppedFrameCount(),
                          session->AllocatedFrameBufferCount()};
            samples.push_back(sample);
            std::printf("%8.1f %10ld %10ld %10ld %9u %8u %12zu\n", sample.seconds, sample.rssKib,
                        sample.anonKib, sample.shmemKib, sample.received, sample.dropped,
                        sample.sdkBuffers);
            std::fflush(stdout);
            nextSample += std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double>(options.sampleSeconds));
            if (now >= end)
                break;
        }

        // The display's tick: the oldest ready frame in, the one shown until now back.
        if (CKorvatinFrameConverted* frame = session->TakeDisplayFrame()) {
            if (shown)
                session->ReturnDisplayFrame(shown);
            shown = frame;
            ++handOffs;
        }
        const Census census = countFrames(*session, shown);
        ++censuses;
        wrappersMax = std::max(wrappersMax, census.wrappers);
        holdersMax = std::max(holdersMax, census.holders);
        foreign |= census.foreign;
        duplicate |= census.duplicate;
        const size_t sdkBuffers = session->AllocatedFrameBufferCount();
        sdkBuffersMin = std::min(sdkBuffersMin, sdkBuffers);
        sdkBuffersMax = std::max(sdkBuffersMax, sdkBuffers);

        nextTick += tick;
        std::this_thread::sleep_until(std::min(nextTick, nextSample));
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    const long socketKib = socketMappingKib();
    const uint32_t received = session->grabbedFrameCount.load();
    const uint32_t dropped = session->GetDroppedFrameCount();

    if (shown)
        session->ReturnDisplayFrame(shown);
    session->DisconnectDevice();
    const size_t sdkBuffersAfter = session->AllocatedFrameBufferCount();
    const long rssAfter = statusKib("VmRSS");

    size_t first = 0;
    while (first < samples.size() && samples[first].seconds < options.warmupSeconds)
        ++first;
    if (first >= samples.size())
        first = samples.empty() ? 0 : samples.size() - 1;
    long maxRss = 0;
    for (const Sample& sample : samples)
        maxRss = std::max(maxRss, sample.rssKib);
    long maxAfterWarmup = 0, minAfterWarmup = LONG_MAX;
    for (size_t i = first; i < samples.size(); ++i) {
        maxAfterWarmup = std::max(maxAfterWarmup, samples[i].rssKib);
        minAfterWarmup = std::min(minAfterWarmup, samples[i].rssKib);
    }
    const long warm = samples.empty() ? 0 : samples[first].rssKib;
    const long last = samples.empty() ? 0 : samples.back().rssKib;

    const double touched = double(rawCount) * payload;
    std::printf("\nframes received: %u in %.1f s (%.1f frames/s), dropped: %u, display "
                "hand-offs: %llu\n",
                received, elapsed, elapsed > 0 ? received / elapsed : 0.0, dropped,
                (unsigned long long)handOffs);
    std::printf("VmRSS before connect: %ld kB, connected: %ld kB\n", rssBefore, rssConnected);
    if (!samples.empty())
        std::printf("at the start of the stream: VmRSS %ld kB, of which anonymous %ld kB and "
                    "shared %ld kB\n",
                    samples.front().rssKib, samples.front().anonKib, samples.front().shmemKib);
    std::printf("VmRSS after warm-up (%.0f s): %ld kB\n",
                samples.empty() ? 0 : samples[first].seconds, warm);
    std::printf("VmRSS at end: %ld kB\n", last);
    std::printf("VmRSS maximum: %ld kB\n", maxRss);
    std::printf("VmRSS after warm-up: lowest %ld kB, highest %ld kB\n", minAfterWarmup,
                maxAfterWarmup);
    std::printf("growth after warm-up: %+ld kB (end minus warm-up), slope %+.1f kB/min\n",
                last - warm, slopeKibPerMinute(samples, first));
    std::printf("VmRSS after disconnect: %ld kB\n", rssAfter);
    std::printf("streaming minus connected: %.1f MiB; stream buffers' payload (%d x %u bytes): "
                "%.1f MiB; buffers as allocated: %.1f MiB + holders %.1f MiB\n",
                (last - rssConnected) / 1024.0, rawCount, payload, mib(touched),
                mib(double(rawCount) * rawBytes),
                mib(double(CKorvatinCameraViewlane::kConvertedFrameCount) * holderBytes));
    std::printf("of it mapped by the stream's socket (packet ring): %.1f MiB\n",
                socketKib / 1024.0);
    std::printf("SDK buffers while streaming: %zu to %zu (stream buffers + holders + the SDK's "
                "stand-ins for the spares: %zu); after disconnect: %zu\n",
                sdkBuffersMin, sdkBuffersMax, expectedSdkBuffers, sdkBuffersAfter);
    std::printf("lists counted %llu times: at most %d of %d spare wrappers and %d of %d holders "
                "in use; foreign entries: %s; an entry in two places: %s\n",
                (unsigned long long)censuses, wrappersMax,
                CKorvatinCameraViewlane::kSpareWrapperCount, holdersMax,
                CKorvatinCameraViewlane::kConvertedFrameCount, foreign ? "yes" : "no",
                duplicate ? "yes" : "no");

    // The stand-ins are added as the spares first leave the stream, so the count starts below
    // the full set: it must reach it and never pass it.
    const bool buffersHeld =
        sdkBuffersMin <= expectedSdkBuffers && sdkBuffersMax == expectedSdkBuffers &&
        sdkBuffersAfter == 0 && wrappersMax <= CKorvatinCameraViewlane::kSpareWrapperCount &&
        holdersMax <= CKorvatinCameraViewlane::kConvertedFrameCount && !foreign && !duplicate;
    std::printf("RESULT buffers: %s\n",
                buffersHeld ? "no more than configured" : "MORE THAN CONFIGURED");
    std::printf("RESULT memory: warm-up %ld kB, end %ld kB, max %ld kB, growth %+ld kB, "
                "slope %+.1f kB/min over %.0f s\n",
                warm, last, maxAfterWarmup, last - warm, slopeKibPerMinute(samples, first),
                samples.empty() ? 0.0 : samples.back().seconds - samples[first].seconds);
    return buffersHeld && received > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    Options options;
    if (!parse(argc, argv, options)) {
        usage();
        return 2;
    }
    try {
        return run(options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "korvatin-memory-bench: %s\n", e.what());
        return 1;
    }
}
