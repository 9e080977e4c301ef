// Firmware transfer benchmark: a 16 MB image written into korvatin-camsim's Firmware slot and
// read back over loopback, once by CKorvatinCamera::FirmwareUpgrade and once by a bare libaravis
// loop making the same file operations (offset, length, the block through FileAccessBuffer,
// selector, execute, status, result; then the same to read back) without any check, in the same
// run against the same camera. The bare loop is the floor the GVCP round trips set.
// Runs inside a private network namespace (isolated.sh).
#include <arv.h>

#include <loopbackdevice.h>
#include <simulatorprocess.h>

#include <korvatin/korvatincamera.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr int kImageBytes = 16 << 20;
constexpr int kRounds = 3;
constexpr const char* kAddress = "127.0.21.1";

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// One file operation, bare: selector, execute, then status and result read as the SDK reads them.
void Operation(ArvDevice* device, const char* operation) {
    arv_device_set_string_feature_value(device, "FileOperationSelector", operation, nullptr);
    arv_device_execute_command(device, "FileOperationExecute", nullptr);
    (void)arv_device_get_string_feature_value(device, "FileOperationStatus", nullptr);
    (void)arv_device_get_integer_feature_value(device, "FileOperationResult", nullptr);
}

// The image written and read back with bare libaravis calls; milliseconds, or -1.
double BareTransfer(const QByteArray& image) {
    GInetAddress* interfaceAddress = g_inet_address_new_from_string("127.0.0.1");
    GInetAddress* deviceAddress = g_inet_address_new_from_string(kAddress);
    GError* error = nullptr;
    ArvDevice* device = arv_gv_device_new(interfaceAddress, deviceAddress, &error);
    g_object_unref(interfaceAddress);
    g_object_unref(deviceAddress);
    if (device == nullptr || error) {
        std::fprintf(stderr, "bare device: %s\n", error ? error->message : "none");
        g_clear_error(&error);
        return -1;
    }
    ArvGcNode* buffer = arv_device_get_feature(device, "FileAccessBuffer");
    const guint64 bufferAddress = arv_gc_register_get_address(ARV_GC_REGISTER(buffer), nullptr);
    const uint32_t block = uint32_t(arv_gc_register_get_length(ARV_GC_REGISTER(buffer), nullptr));
    std::vector<uint8_t> readBack(block);
    int differing = 0;
    QElapsedTimer clock;
    clock.start();
    arv_device_set_string_feature_value(device, "FileSelector", "Firmware", nullptr);
    for (const char* mode : {"Write", "Read"}) {
        arv_device_set_string_feature_value(device, "FileOpenMode", mode, nullptr);
        Operation(device, "Open");
        const bool write = mode[0] == 'W';
        for (int offset = 0; offset < image.size(); offset += int(block)) {
            const uint32_t length = uint32_t(std::min<int>(int(block), image.size() - offset));
            arv_device_set_integer_feature_value(device, "FileAccessOffset", offset, nullptr);
            arv_device_set_integer_feature_value(device, "FileAccessLength", length, nullptr);
            if (write) {
                arv_device_write_memory(device, bufferAddress, length,
                                        const_cast<char*>(image.constData() + offset), nullptr);
                Operation(device, "Write");
            } else {
                Operation(device, "Read");
                arv_device_read_memory(device, bufferAddress, length, readBack.data(), nullptr);
                if (std::memcmp(readBack.data(), image.constData() + offset, length) != 0)
                    ++differing;
            }
        }
        Operation(device, "Close");
    }
    const double ms = double(clock.nsecsElapsed()) / 1e6;
    g_object_unref(device);
    // The floor only counts if the bare loop really moved the image.
    if (differing != 0) {
        std::fprintf(stderr, "bare transfer: %d blocks read back differ\n", differing);
        return -1;
    }
    return ms;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    SimulatorProcess sim;
    if (!dir.isValid() || !sim.startCamsim({"--address", kAddress, "--serial", "900001"})) {
        std::fprintf(stderr, "cannot start korvatin-camsim: %s\n", qPrintable(sim.errorString()));
        return 1;
    }
    QByteArray image(kImageBytes, '\0');
    for (int i = 0; i < kImageBytes; ++i)
        image[i] = char((i * 131 + i / 4093) & 0xFF);
    const QString path = dir.filePath("image.bin");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(image) != image.size())
        return 1;
    file.close();

    std::vector<double> sdk;
    std::vector<double> bare;
    for (int round = 0; round < kRounds; ++round) {
        {
            CKorvatinCamera camera;
            camera.Connect(LoopbackDevice(kAddress), nullptr);
            QElapsedTimer clock;
            clock.start();
            const QRN_ERROR result =
                camera.FirmwareUpgrade(path.toLocal8Bit().constData(), false, nullptr, nullptr);
            sdk.push_back(double(clock.nsecsElapsed()) / 1e6);
            if (result != 0) {
                std::fprintf(stderr, "the upgrade failed with %d\n", result);
                return 1;
            }
        }
        const double ms = BareTransfer(image);
        if (ms < 0)
            return 1;
        bare.push_back(ms);
    }
    const double blocks = 2.0 * kImageBytes / 4096;
    std::printf(
        "firmware transfer of a %d MB image over loopback (written and read back, 4096-byte "
        "blocks), medians of %d\n",
        kImageBytes >> 20, kRounds);
    std::printf("  FirmwareUpgrade: %8.1f ms  %6.2f MB/s of image  %6.1f us per block\n",
                Median(sdk), kImageBytes / 1e6 / (Median(sdk) / 1000.0),
                Median(sdk) * 1000.0 / blocks);
    std::printf("  bare libaravis:  %8.1f ms  %6.2f MB/s of image  %6.1f us per block\n",
                Median(bare), kImageBytes / 1e6 / (Median(bare) / 1000.0),
                Median(bare) * 1000.0 / blocks);
    std::printf("  ratio FirmwareUpgrade / bare: %.2f\n", Median(sdk) / Median(bare));
    return 0;
}
