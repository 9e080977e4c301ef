// A bare libaravis consumer for the simulator benchmark: streams Mono8 and counts frames.
#include "lib/bareconsumer.h"

#include <arv.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

using bare::GObjectPtr;

struct Options {
    std::string address;
    std::string label = "camera";
    int width = 2048;
    int height = 2048;
    double seconds = 5;
    int packetSize = 0; // 0: negotiate with test packets where the camera offers them
    int buffers = 32;
};

void usage() {
    std::fputs("Usage: korvatin-camsim-bench ADDRESS [--label TEXT] [--width W] [--height H]\n"
               "       [--seconds S] [--packet-size BYTES] [--buffers N]\n",
               stderr);
}

bool parse(int argc, char** argv, Options* options) {
    if (argc < 2)
        return false;
    options->address = argv[1];
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        const char* value = argv[i + 1];
        if (option == "--label")
            options->label = value;
        else if (option == "--width")
            options->width = std::atoi(value);
        else if (option == "--height")
            options->height = std::atoi(value);
        else if (option == "--seconds")
            options->seconds = std::atof(value);
        else if (option == "--packet-size")
            options->packetSize = std::atoi(value);
        else if (option == "--buffers")
            options->buffers = std::atoi(value);
        else
            return false;
    }
    return (argc % 2) == 0 && !options->address.empty();
}

bool check(GError*& error, const char* what) {
    return bare::Check(error, "korvatin-camsim-bench", what);
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, &options)) {
        usage();
        return 2;
    }
    bare::Camera opened = bare::Open(options.address.c_str(), "korvatin-camsim-bench");
    if (opened.badAddress) {
        usage();
        return 2;
    }
    if (!opened.camera)
        return 1;
    GObjectPtr<ArvDevice>& device = opened.device;
    GObjectPtr<ArvCamera>& camera = opened.camera;
    GError* error = nullptr;
    arv_camera_set_pixel_format_from_string(camera.get(), "Mono8", &error);
    check(error, "PixelFormat");
    arv_camera_set_region(camera.get(), 0, 0, options.width, options.height, &error);
    if (!check(error, "region"))
        return 1;
    // As fast as each camera allows: ours takes FrameRate 0 for no limit, Aravis' simulator
    // the largest AcquisitionFrameRate.
    if (arv_device_get_feature(device.get(), "FrameRate")) {
        arv_device_set_integer_feature_value(device.get(), "FrameRate", 0, &error);
        check(error, "FrameRate");
    } else {
        double minimum = 0, maximum = 0;
        arv_camera_get_frame_rate_bounds(camera.get(), &minimum, &maximum, &error);
        if (check(error, "frame rate bounds")) {
            arv_camera_set_frame_rate(camera.get(), maximum, &error);
            check(error, "AcquisitionFrameRate");
        }
    }
    if (options.packetSize > 0)
        arv_camera_gv_set_packet_size(camera.get(), options.packetSize, &error);
    else
        arv_camera_gv_auto_packet_size(camera.get(), &error);
    check(error, "packet size");
    const int packetSize = arv_camera_gv_get_packet_size(camera.get(), nullptr);
    const guint payload = arv_camera_get_payload(camera.get(), nullptr);

    GObjectPtr<ArvStream> stream(arv_camera_create_stream(camera.get(), nullptr, nullptr, &error));
    if (!check(error, "stream"))
        return 1;
    for (int i = 0; i < options.buffers; ++i)
        arv_stream_push_buffer(stream.get(), arv_buffer_new(payload, nullptr));
    arv_camera_start_acquisition(camera.get(), &error);
    if (!check(error, "start"))
        return 1;

    using Clock = std::chrono::steady_clock;
    // One second to settle (first frames, packet socket set-up), then the measured run.
    const auto warmUpEnd = Clock::now() + std::chrono::seconds(1);
    Clock::time_point start;
    bool measuring = false;
    long succeeded = 0;
    long failed = 0;
    long statusCounts[16] = {};
    for (;;) {
        const auto now = Clock::now();
        if (!measuring && now >= warmUpEnd) {
            measuring = true;
            start = now;
        }
        if (measuring && std::chrono::duration<double>(now - start).count() >= options.seconds)
            break;
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream.get(), 1000000);
        if (!buffer) {
            if (measuring)
                ++failed;
            continue;
        }
        if (measuring) {
            if (arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS)
                ++succeeded;
            else {
                ++failed;
                ++statusCounts[std::min<int>(arv_buffer_get_status(buffer), 15)];
            }
        }
        arv_stream_push_buffer(stream.get(), buffer);
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    arv_camera_stop_acquisition(camera.get(), nullptr);
    guint64 resent = 0, missing = 0;
    arv_gv_stream_get_statistics(ARV_GV_STREAM(stream.get()), &resent, &missing);

    const double fps = succeeded / elapsed;
    for (int status = 0; status < 16; ++status) {
        if (statusCounts[status] > 0)
            std::fprintf(stderr, "%s: %ld buffers with status %d\n", options.label.c_str(),
                         statusCounts[status], status);
    }
    std::printf("%s: %.1f frames/s, %ld frames in %.1f s, %ld failed, %.0f MB/s, packet size %d, "
                "%llu packets resent\n",
                options.label.c_str(), fps, succeeded, elapsed, failed, fps * payload / 1e6,
                packetSize, static_cast<unsigned long long>(resent));
    std::printf("RESULT %s %.2f %ld %d\n", options.label.c_str(), fps, failed, packetSize);
    return 0;
}
