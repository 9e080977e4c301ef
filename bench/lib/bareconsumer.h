// What the bare libaravis consumers of the benchmarks share: GObject ownership, error reporting,
// and opening a camera on the loopback interface the way any Aravis program does.
#pragma once

#include <arv.h>

#include <cstdio>
#include <memory>

namespace bare {

struct GObjectUnref {
    void operator()(gpointer object) const {
        if (object)
            g_object_unref(object);
    }
};
template <typename T> using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

// True without an error; otherwise prints "PROGRAM: WHAT: message", clears it, false.
inline bool Check(GError*& error, const char* program, const char* what) {
    if (!error)
        return true;
    std::fprintf(stderr, "%s: %s: %s\n", program, what, error->message);
    g_clear_error(&error);
    return false;
}

// The device and camera at `address`, reached from 127.0.0.1; both null when it cannot be
// opened (the reason printed, unless the address itself is bad).
struct Camera {
    GObjectPtr<ArvDevice> device;
    GObjectPtr<ArvCamera> camera;
    bool badAddress = false; // `address` is not an IPv4 address at all
};
inline Camera Open(const char* address, const char* program) {
    Camera opened;
    GError* error = nullptr;
    GObjectPtr<GInetAddress> interfaceAddress(g_inet_address_new_from_string("127.0.0.1"));
    GObjectPtr<GInetAddress> deviceAddress(g_inet_address_new_from_string(address));
    if (!deviceAddress) {
        opened.badAddress = true;
        return opened;
    }
    GObjectPtr<ArvDevice> device(
        arv_gv_device_new(interfaceAddress.get(), deviceAddress.get(), &error));
    if (!Check(error, program, "open"))
        return opened;
    GObjectPtr<ArvCamera> camera(arv_camera_new_with_device(device.get(), &error));
    if (!Check(error, program, "camera"))
        return opened;
    opened.device = std::move(device);
    opened.camera = std::move(camera);
    return opened;
}

} // namespace bare
