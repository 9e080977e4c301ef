// A bare libaravis consumer, the yardstick of the stream benchmark: receives N frames, no more.
#include "../lib/bareconsumer.h"

#include <arv.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

using bare::GObjectPtr;

bool check(GError*& error, const char* what) {
    return bare::Check(error, "korvatin-stream-bare", what);
}

} // namespace

// Usage: korvatin-stream-bare ADDRESS FRAMES PIXELFORMAT [BUFFERS]
// Prints the same six figures as viewlane-cli grab, measured the same way (the rate between
// the first frame received and the last), and the packet size it negotiated.
int main(int argc, char** argv) {
    if (argc < 4) {
        std::fputs("Usage: korvatin-stream-bare ADDRESS FRAMES PIXELFORMAT [BUFFERS]\n", stderr);
        return 2;
    }
    const long wanted = std::atol(argv[2]);
    const int buffers = argc > 4 ? std::atoi(argv[4]) : 10;
    if (wanted < 1)
        return 2;
    bare::Camera opened = bare::Open(argv[1], "korvatin-stream-bare");
    if (opened.badAddress)
        return 2;
    if (!opened.camera)
        return 1;
    GError* error = nullptr;
    GObjectPtr<ArvCamera>& camera = opened.camera;
    arv_camera_set_pixel_format_from_string(camera.get(), argv[3], &error);
    if (!check(error, "PixelFormat"))
        return 1;
    arv_camera_gv_auto_packet_size(camera.get(), &error);
    check(error, "packet size");
    const guint payload = arv_camera_get_payload(camera.get(), nullptr);
    const guint packetSize = arv_camera_gv_get_packet_size(camera.get(), nullptr);

    GObjectPtr<ArvStream> stream(arv_camera_create_stream(camera.get(), nullptr, nullptr, &error));
    if (!check(error, "stream"))
        return 1;
    for (int i = 0; i < buffers; ++i)
        arv_stream_push_buffer(stream.get(), arv_buffer_new(payload, nullptr));
    arv_camera_start_acquisition(camera.get(), &error);
    if (!check(error, "start"))
        return 1;

    using Clock = std::chrono::steady_clock;
    long received = 0;
    long failed = 0;
    // Frames lost, counted as viewlane-cli counts them: the block ids skipped between two
    // complete images (16-bit ids, which wrap and skip 0).
    unsigned long long skipped = 0;
    guint64 lastId = 0;
    Clock::time_point first;
    Clock::time_point last;
    while (received < wanted) {
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream.get(), 5000000);
        if (!buffer) {
            std::fputs("korvatin-stream-bare: no frame within 5 s\n", stderr);
            return 1;
        }
        if (arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS) {
            const guint64 id = arv_buffer_get_frame_id(buffer);
            const guint64 distance = lastId != 0 ? (id + 0xFFFF - lastId) % 0xFFFF : 0;
            skipped += distance >= 1 && distance < 0x8000 ? distance - 1 : 0;
            lastId = id;
            last = Clock::now();
            if (received++ == 0)
                first = last;
        } else {
            ++failed;
        }
        arv_stream_push_buffer(stream.get(), buffer);
    }
    arv_camera_stop_acquisition(camera.get(), nullptr);
    const guint64 resent = arv_stream_get_info_uint64_by_name(stream.get(), "n_resent_packets");

    const double seconds = std::chrono::duration<double>(last - first).count();
    const double fps = seconds > 0 ? double(received - 1) / seconds : 0.0;
    std::printf("frames received: %ld\n", received);
    std::printf("frames dropped: %llu\n", skipped);
    std::printf("frames per second: %.2f\n", fps);
    std::printf("megabytes per second: %.2f\n", fps * payload / 1e6);
    std::printf("packets resent: %llu\n", static_cast<unsigned long long>(resent));
    std::printf("frames incomplete: %ld\n", failed);
    std::printf("packet size: %u\n", packetSize);
    return 0;
}
