// Times CKorvatinFrame::Convert on 2448 x 2048 images in every pixel format, and OpenCV's
// cvtColor on the same images wherever it has the same conversion.
#include "pixelformats.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinframe.h>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kWidth = 2448;
constexpr uint32_t kHeight = 2048;
constexpr double kMegapixels = kWidth * double(kHeight) / 1e6;
constexpr int kRounds = 100;
// Rounds of the every-format table: 84 formats, each with and without the context.
constexpr int kFormatRounds = 15;

constexpr uint32_t kBayerRG8 = 0x01080009;
constexpr uint32_t kMono12Packed = 0x010c0006;
constexpr uint32_t kMono16 = 0x01100007;

// A sensor-like picture: smooth gradients plus noise, so no kernel sees a constant image.
std::vector<uint8_t> Picture8() {
    std::vector<uint8_t> image(size_t(kWidth) * kHeight);
    std::mt19937 random(1);
    for (uint32_t y = 0; y < kHeight; ++y) {
        for (uint32_t x = 0; x < kWidth; ++x)
            image[size_t(y) * kWidth + x] = uint8_t((x / 10 + y / 8) + (random() & 15));
    }
    return image;
}

std::vector<uint8_t> Picture12Packed() {
    std::vector<uint8_t> bytes(size_t(kWidth) * kHeight / 2 * 3);
    std::mt19937 random(2);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = uint8_t(random());
    return bytes;
}

std::vector<uint8_t> Picture16() {
    std::vector<uint8_t> bytes(size_t(kWidth) * kHeight * 2);
    std::mt19937 random(3);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = uint8_t(random());
    return bytes;
}

// CPU time of the calling thread: what a single-threaded run costs, whatever else the machine
// is doing meanwhile.
double ThreadCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

struct Times {
    std::vector<double> wall;
    std::vector<double> cpu; // the calling thread's share only
};

void Measure(const std::function<void()>& work, Times& into) {
    const double cpuStart = ThreadCpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    work();
    into.wall.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    into.cpu.push_back(ThreadCpuSeconds() - cpuStart);
}

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Times several contenders round by round, one run of each per round with the order turning
// every round, so that they share the machine's ups and downs; returns every run's times.
std::vector<Times> Race(const std::vector<std::function<void()>>& contenders,
                        int rounds = kRounds) {
    for (const auto& c : contenders)
        c(); // warm caches and thread pools
    std::vector<Times> times(contenders.size());
    for (int round = 0; round < rounds; ++round) {
        for (size_t k = 0; k < contenders.size(); ++k) {
            const size_t i = (k + size_t(round)) % contenders.size();
            Measure(contenders[i], times[i]);
        }
    }
    return times;
}

double Best(const std::vector<double>& v) {
    return *std::min_element(v.begin(), v.end());
}

// The median over rounds of how many times faster `ours` was than `theirs` in the same round.
double RatioPerRound(const std::vector<double>& ours, const std::vector<double>& theirs) {
    std::vector<double> ratios;
    for (size_t i = 0; i < ours.size(); ++i)
        ratios.push_back(theirs[i] / ours[i]);
    return Median(ratios);
}

std::string CpuModel() {
    std::ifstream in("/proc/cpuinfo");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("model name", 0) == 0)
            return line.substr(line.find(':') + 2);
    }
    return "unknown";
}

void Row(const char* what, const Times& measured) {
    const std::vector<double>& times = measured.wall;
    const double median = Median(times);
    const double best = Best(times);
    std::printf("| %-52s | %8.2f | %8.0f | %8.2f | %8.0f |\n", what, median * 1e3,
                kMegapixels / median, best * 1e3, kMegapixels / best);
}

struct Converter {
    CKorvatinFrame source;
    CKorvatinFrame dest;
    std::vector<uint8_t> input;
    std::vector<uint8_t> output;
    Converter(uint32_t pixelType, std::vector<uint8_t> bytes) : input(std::move(bytes)) {
        source.Describe(input.data(), input.size(), input.size(), 0, 1, 0, nullptr);
        source.SetWidth(kWidth);
        source.SetHeight(kHeight);
        source.SetPixelType(pixelType);
        output.assign(size_t(kWidth) * kHeight * 6, 0);
        dest.Describe(output.data(), 0, output.size(), 0, 0, 0, nullptr);
    }
    void Run(uint32_t code, void* context, uint32_t bitDepth = 8) {
        if (dest.Convert(source, code, bitDepth, 1, context) != QRN_OK) {
            std::fprintf(stderr, "conversion of 0x%08X failed\n", source.PixelType());
            std::exit(1);
        }
    }
};

// Random bytes for a whole image of `pixelType`: every format's samples take every value.
std::vector<uint8_t> RandomImage(uint32_t pixelType, uint32_t seed) {
    const size_t bits = (pixelType >> 16) & 0xFF;
    std::vector<uint8_t> bytes((size_t(kWidth) * kHeight * bits + 7) / 8);
    std::mt19937 random(seed);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = uint8_t(random());
    return bytes;
}

void FormatRow(const char* what, const Times& withContext, const Times& without) {
    const double a = Median(withContext.wall);
    const double b = Median(without.wall);
    std::printf("| %-26s | %8.2f | %8.0f | %8.2f | %8.0f |\n", what, a * 1e3, kMegapixels / a,
                b * 1e3, kMegapixels / b);
}

// Every format the SDK reads (the simulator's table names them all): display output, Bayer by
// bilinear interpolation, with the context and without.
void EveryFormat(void* context) {
    size_t count = 0;
    const camsim::PixelFormatInfo* formats = camsim::PixelFormats(&count);
    std::printf("\nEvery format to the display types (code 4, Bayer bilinear code 7), median of "
                "%d rounds:\n\n",
                kFormatRounds);
    std::printf("| %-26s | %8s | %8s | %8s | %8s |\n", "format", "context", "MP/s", "none", "MP/s");
    std::printf("| %-26s | %8s | %8s | %8s | %8s |\n", "", "ms", "", "ms", "");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(28, '-').c_str(), std::string(10, '-').c_str(),
                std::string(10, '-').c_str(), std::string(10, '-').c_str(),
                std::string(10, '-').c_str());
    double slowest = 1e9;
    std::string slowestName;
    for (size_t i = 0; i < count; ++i) {
        const camsim::PixelFormatInfo& f = formats[i];
        if (f.layout == camsim::SampleLayout::Coord3D8)
            continue;
        Converter converter(f.code, RandomImage(f.code, uint32_t(i)));
        const uint32_t code = f.mosaic[0] != '\0' ? 7 : 4;
        const auto times =
            Race({[&] { converter.Run(code, context); }, [&] { converter.Run(code, nullptr); }},
                 kFormatRounds);
        FormatRow(f.name, times[0], times[1]);
        const double rate = kMegapixels / Median(times[0].wall);
        if (rate < slowest) {
            slowest = rate;
            slowestName = f.name;
        }
    }
    std::printf("\nSlowest with context: %s, %.0f MP/s\n", slowestName.c_str(), slowest);
}

// The conversions OpenCV has too: same input, same output layout, run in turn.
void AgainstOpenCv(void* context) {
    struct Pair {
        const char* what;
        uint32_t pixelType;
        uint32_t bitDepth;
        int cvType;
        int cvCode;
    };
    // 4:2:2 with OpenCV's YUV2RGB_UYVY and _YUY2 is studio-range BT.601 like YCbCr601_422_8;
    // BGR16 to RGB16 is a swap of 16-bit channels (bitDepth 0 keeps them).
    const Pair pairs[] = {
        {"YCbCr601_422_8_CbYCrY vs YUV2RGB_UYVY", 0x02100044, 8, CV_8UC2, cv::COLOR_YUV2RGB_UYVY},
        {"YCbCr601_422_8 vs YUV2RGB_YUY2", 0x0210003E, 8, CV_8UC2, cv::COLOR_YUV2RGB_YUY2},
        {"BGR8 vs BGR2RGB", 0x02180015, 8, CV_8UC3, cv::COLOR_BGR2RGB},
        {"BGRa8 vs BGRA2RGB", 0x02200017, 8, CV_8UC4, cv::COLOR_BGRA2RGB},
        {"BGR16 vs BGR2RGB (16-bit)", 0x0230004B, 0, CV_16UC3, cv::COLOR_BGR2RGB},
    };
    const int cvThreads = cv::getNumThreads();
    std::printf("\nAgainst OpenCV cvtColor on the same image (medians of %d rounds; ratio = "
                "OpenCV's time / ours, >= 1.0: ours at least as fast):\n\n",
                kFormatRounds);
    std::printf("| %-40s | %8s | %8s | %8s | %8s | %6s |\n", "conversion", "ours ms", "MP/s",
                "OpenCV", "MP/s", "ratio");
    std::printf("|%s|%s|%s|%s|%s|%s|\n", std::string(42, '-').c_str(), std::string(10, '-').c_str(),
                std::string(10, '-').c_str(), std::string(10, '-').c_str(),
                std::string(10, '-').c_str(), std::string(8, '-').c_str());
    for (const Pair& p : pairs) {
        std::vector<uint8_t> bytes = RandomImage(p.pixelType, p.pixelType);
        // Studio-range samples for the YUV pairs: luma 16..235, chroma 16..240. OpenCV raises
        // luma below 16 to 16 before its matrix, which only out-of-range samples would show.
        if (p.cvType == CV_8UC2) {
            const bool lumaFirst = p.cvCode == cv::COLOR_YUV2RGB_YUY2;
            for (size_t i = 0; i < bytes.size(); ++i) {
                const bool luma = (i % 2 == 0) == lumaFirst;
                bytes[i] = uint8_t(16 + bytes[i] % (luma ? 220 : 225));
            }
        }
        Converter converter(p.pixelType, std::move(bytes));
        cv::Mat in(int(kHeight), int(kWidth), p.cvType, converter.input.data());
        cv::Mat out;
        for (int single = 0; single < 2; ++single) {
            if (single)
                cv::setNumThreads(1);
            const auto times =
                Race({[&] { converter.Run(4, single ? nullptr : context, p.bitDepth); },
                      [&] { cv::cvtColor(in, out, p.cvCode); }},
                     kFormatRounds);
            const std::string what = std::string(p.what) + (single ? ", 1 thread" : ", threads");
            std::printf("| %-40s | %8.2f | %8.0f | %8.2f | %8.0f | %6.2f |\n", what.c_str(),
                        Median(times[0].wall) * 1e3, kMegapixels / Median(times[0].wall),
                        Median(times[1].wall) * 1e3, kMegapixels / Median(times[1].wall),
                        RatioPerRound(times[0].wall, times[1].wall));
            cv::setNumThreads(cvThreads);
        }
        // The same result, level for level (YUV within one level of rounding).
        converter.Run(4, context, p.bitDepth);
        cv::cvtColor(in, out, p.cvCode);
        const size_t samples = size_t(kWidth) * kHeight * 3;
        int worst = 0;
        for (size_t i = 0; i < samples; ++i) {
            const int a = p.bitDepth == 0
                              ? reinterpret_cast<const uint16_t*>(converter.output.data())[i]
                              : converter.output[i];
            const int b =
                p.bitDepth == 0 ? reinterpret_cast<const uint16_t*>(out.data)[i] : out.data[i];
            worst = std::max(worst, std::abs(a - b));
        }
        std::printf("|   largest difference from OpenCV: %d level(s) |\n", worst);
    }
}

} // namespace

// Arguments choose parts: "bayer" (the Bayer, Mono12Packed and Mono16 tables), "opencv" (the
// other conversions OpenCV has), "formats" (every format); none runs all three.
int main(int argc, char** argv) {
    auto wanted = [&](const char* part) {
        if (argc < 2)
            return true;
        for (int i = 1; i < argc; ++i)
            if (std::string(argv[i]) == part)
                return true;
        return false;
    };
    CKorvatinCamera camera;
    void* context = camera.ConversionContext();
    const int cvThreads = cv::getNumThreads();
    std::printf("Conversion benchmark: %u x %u (%.2f MP), %d rounds\n", kWidth, kHeight,
                kMegapixels, kRounds);
    std::printf("CPU: %s, %u hardware threads; OpenCV %s with %d threads\n\n", CpuModel().c_str(),
                std::thread::hardware_concurrency(), CV_VERSION, cvThreads);

    if (!wanted("bayer")) {
        if (wanted("opencv"))
            AgainstOpenCv(context);
        if (wanted("formats"))
            EveryFormat(context);
        return 0;
    }
    // BayerRG8 (R G / G B from the top-left) is what OpenCV calls BayerBG.
    Converter bayer(kBayerRG8, Picture8());
    cv::Mat mosaic(int(kHeight), int(kWidth), CV_8UC1, bayer.input.data());
    cv::Mat cvOut(int(kHeight), int(kWidth), CV_8UC3);
    const auto ours = [&](uint32_t code, void* ctx) {
        return [&, code, ctx] { bayer.Run(code, ctx); };
    };
    const auto opencv = [&] { cv::cvtColor(mosaic, cvOut, cv::COLOR_BayerBG2RGB); };

    const auto both = Race({ours(7, context), opencv});
    cv::setNumThreads(1);
    const auto single = Race({ours(7, nullptr), opencv});
    cv::setNumThreads(cvThreads);
    const auto nearest = Race({ours(5, context), ours(5, nullptr)});

    // The two agree inside the image (OpenCV treats the outermost pixels its own way).
    bayer.Run(7, context);
    cv::cvtColor(mosaic, cvOut, cv::COLOR_BayerBG2RGB);
    int worst = 0;
    for (uint32_t y = 2; y + 2 < kHeight; ++y) {
        const uint8_t* a = bayer.output.data() + size_t(y) * kWidth * 3;
        const uint8_t* b = cvOut.ptr<uint8_t>(int(y));
        for (uint32_t i = 6; i + 6 < kWidth * 3; ++i)
            worst = std::max(worst, std::abs(int(a[i]) - int(b[i])));
    }

    Converter packed(kMono12Packed, Picture12Packed());
    const auto packedTimes =
        Race({[&] { packed.Run(4, context); }, [&] { packed.Run(4, nullptr); }});
    Converter mono16(kMono16, Picture16());
    const auto mono16Times =
        Race({[&] { mono16.Run(4, context); }, [&] { mono16.Run(4, nullptr); }});

    std::printf("| %-52s | %8s | %8s | %8s | %8s |\n", "conversion", "median", "MP/s", "best",
                "MP/s");
    std::printf("| %-52s | %8s | %8s | %8s | %8s |\n", "", "ms", "", "ms", "");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(54, '-').c_str(), std::string(10, '-').c_str(),
                std::string(10, '-').c_str(), std::string(10, '-').c_str(),
                std::string(10, '-').c_str());
    Row("BayerRG8 bilinear to RGB, with context", both[0]);
    Row("OpenCV cvtColor BayerBG2RGB, its default threads", both[1]);
    Row("BayerRG8 bilinear to RGB, no context (1 thread)", single[0]);
    Row("OpenCV cvtColor BayerBG2RGB, 1 thread", single[1]);
    Row("BayerRG8 nearest neighbour to RGB, with context", nearest[0]);
    Row("BayerRG8 nearest neighbour to RGB, no context", nearest[1]);
    Row("Mono12Packed to grey, with context", packedTimes[0]);
    Row("Mono12Packed to grey, no context", packedTimes[1]);
    Row("Mono16 to grey, with context", mono16Times[0]);
    Row("Mono16 to grey, no context", mono16Times[1]);
    std::printf("\nBilinear speed ratio, OpenCV's time / ours (>= 1.0: ours at least as fast),\n"
                "median of the rounds' ratios, and from the medians and the best times:\n");
    std::printf("  with context vs OpenCV default threads: %.2f (medians %.2f, best %.2f)\n",
                RatioPerRound(both[0].wall, both[1].wall),
                Median(both[1].wall) / Median(both[0].wall),
                Best(both[1].wall) / Best(both[0].wall));
    std::printf("  no context vs OpenCV on 1 thread:       %.2f (medians %.2f, best %.2f)\n",
                RatioPerRound(single[0].wall, single[1].wall),
                Median(single[1].wall) / Median(single[0].wall),
                Best(single[1].wall) / Best(single[0].wall));
    std::printf("  no context vs OpenCV on 1 thread, by CPU time: %.2f (ours %.2f ms, OpenCV %.2f "
                "ms, medians)\n",
                Median(single[1].cpu) / Median(single[0].cpu), Median(single[0].cpu) * 1e3,
                Median(single[1].cpu) * 1e3);
    std::printf("Largest difference from OpenCV inside the image: %d level(s)\n", worst);

    if (wanted("opencv"))
        AgainstOpenCv(context);
    if (wanted("formats"))
        EveryFormat(context);
    return 0;
}
