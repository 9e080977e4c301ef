// Pixel-format conversion against reference images computed here, pixel by pixel.
#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinframe.h>

#include <QtTest>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kMono8 = 0x01080001;
constexpr uint32_t kMono16 = 0x01100007;
constexpr uint32_t kRgb8 = 0x02180014;
constexpr uint32_t kRgb16 = 0x02300033;
constexpr uint32_t kDisplayGrey = 0x21084001;
constexpr uint32_t kDisplayRgb = 0x23088005;

// How a test source is written: each layout is encoded here from its definition.
enum class Layout { Bytes, Words, GevPacked, LsbStream };

struct Format {
    const char* name;
    uint32_t code;
    Layout layout;
    int bits;           // significant bits
    const char* mosaic; // the 2 x 2 cell, first row then second ("RGGB"); empty for mono
};

const Format kMonoFormats[] = {
    {"Mono8", 0x01080001, Layout::Bytes, 8, ""},
    {"Mono10", 0x01100003, Layout::Words, 10, ""},
    {"Mono12", 0x01100005, Layout::Words, 12, ""},
    {"Mono14", 0x01100025, Layout::Words, 14, ""},
    {"Mono16", 0x01100007, Layout::Words, 16, ""},
    {"Mono10Packed", 0x010c0004, Layout::GevPacked, 10, ""},
    {"Mono12Packed", 0x010c0006, Layout::GevPacked, 12, ""},
    {"Mono10p", 0x010a0046, Layout::LsbStream, 10, ""},
    {"Mono12p", 0x010c0047, Layout::LsbStream, 12, ""},
};

const Format kBayerFormats[] = {
    {"BayerGR8", 0x01080008, Layout::Bytes, 8, "GRBG"},
    {"BayerRG8", 0x01080009, Layout::Bytes, 8, "RGGB"},
    {"BayerGB8", 0x0108000a, Layout::Bytes, 8, "GBRG"},
    {"BayerBG8", 0x0108000b, Layout::Bytes, 8, "BGGR"},
    {"BayerGR10", 0x0110000c, Layout::Words, 10, "GRBG"},
    {"BayerRG10", 0x0110000d, Layout::Words, 10, "RGGB"},
    {"BayerGB10", 0x0110000e, Layout::Words, 10, "GBRG"},
    {"BayerBG10", 0x0110000f, Layout::Words, 10, "BGGR"},
    {"BayerGR12", 0x01100010, Layout::Words, 12, "GRBG"},
    {"BayerRG12", 0x01100011, Layout::Words, 12, "RGGB"},
    {"BayerGB12", 0x01100012, Layout::Words, 12, "GBRG"},
    {"BayerBG12", 0x01100013, Layout::Words, 12, "BGGR"},
    {"BayerGR16", 0x0110002e, Layout::Words, 16, "GRBG"},
    {"BayerRG16", 0x0110002f, Layout::Words, 16, "RGGB"},
    {"BayerGB16", 0x01100030, Layout::Words, 16, "GBRG"},
    {"BayerBG16", 0x01100031, Layout::Words, 16, "BGGR"},
    {"BayerGR10Packed", 0x010c0026, Layout::GevPacked, 10, "GRBG"},
    {"BayerRG10Packed", 0x010c0027, Layout::GevPacked, 10, "RGGB"},
    {"BayerGB10Packed", 0x010c0028, Layout::GevPacked, 10, "GBRG"},
    {"BayerBG10Packed", 0x010c0029, Layout::GevPacked, 10, "BGGR"},
    {"BayerGR12Packed", 0x010c002a, Layout::GevPacked, 12, "GRBG"},
    {"BayerRG12Packed", 0x010c002b, Layout::GevPacked, 12, "RGGB"},
    {"BayerGB12Packed", 0x010c002c, Layout::GevPacked, 12, "GBRG"},
    {"BayerBG12Packed", 0x010c002d, Layout::GevPacked, 12, "BGGR"},
    {"BayerGR10p", 0x010a0056, Layout::LsbStream, 10, "GRBG"},
    {"BayerRG10p", 0x010a0058, Layout::LsbStream, 10, "RGGB"},
    {"BayerGB10p", 0x010a0054, Layout::LsbStream, 10, "GBRG"},
    {"BayerBG10p", 0x010a0052, Layout::LsbStream, 10, "BGGR"},
    {"BayerGR12p", 0x010c0057, Layout::LsbStream, 12, "GRBG"},
    {"BayerRG12p", 0x010c0059, Layout::LsbStream, 12, "RGGB"},
    {"BayerGB12p", 0x010c0055, Layout::LsbStream, 12, "GBRG"},
    {"BayerBG12p", 0x010c0053, Layout::LsbStream, 12, "BGGR"},
};

const Format* FindFormat(const QString& name) {
    for (const Format& f : kMonoFormats) {
        if (name == f.name)
            return &f;
    }
    for (const Format& f : kBayerFormats) {
        if (name == f.name)
            return &f;
    }
    return nullptr;
}

std::vector<uint32_t> RandomValues(size_t count, int bits, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<uint32_t> values(count);
    for (uint32_t& v : values)
        v = random() & ((1u << bits) - 1);
    return values;
}

// Writes pixel values in a format's layout, one line after another (no padding).
std::vector<uint8_t> Encode(const Format& f, const std::vector<uint32_t>& values) {
    std::vector<uint8_t> bytes;
    switch (f.layout) {
    case Layout::Bytes:
        for (uint32_t v : values)
            bytes.push_back(uint8_t(v));
        break;
    case Layout::Words:
        for (uint32_t v : values) {
            bytes.push_back(uint8_t(v & 0xFF));
            bytes.push_back(uint8_t(v >> 8));
        }
        break;
    case Layout::GevPacked: {
        // Two pixels in three bytes: the high 8 bits of the first, the low bits of the first
        // (bits 0-3) and of the second (bits 4-7), the high 8 bits of the second. An odd last
        // pixel takes two bytes.
        const int low = f.bits - 8;
        for (size_t i = 0; i < values.size(); i += 2) {
            const uint32_t p0 = values[i];
            bytes.push_back(uint8_t(p0 >> low));
            if (i + 1 < values.size()) {
                const uint32_t p1 = values[i + 1];
                bytes.push_back(uint8_t((p0 & ((1u << low) - 1)) | (p1 & ((1u << low) - 1)) << 4));
                bytes.push_back(uint8_t(p1 >> low));
            } else {
                bytes.push_back(uint8_t(p0 & ((1u << low) - 1)));
            }
        }
        break;
    }
    case Layout::LsbStream: {
        // One bit stream, least significant bit first, `bits` bits per pixel.
        const size_t totalBits = values.size() * f.bits;
        bytes.assign((totalBits + 7) / 8, 0);
        size_t bit = 0;
        for (uint32_t v : values) {
            for (int b = 0; b < f.bits; ++b, ++bit) {
                if (v & (1u << b))
                    bytes[bit / 8] |= uint8_t(1u << (bit % 8));
            }
        }
        break;
    }
    }
    return bytes;
}

// A frame over a vector: the source, or a destination with room for `capacity` bytes.
struct Image {
    std::vector<uint8_t> bytes;
    CKorvatinFrame frame;

    void Source(uint32_t width, uint32_t height, uint32_t pixelType, std::vector<uint8_t> data,
                uint32_t stride = 0) {
        bytes = std::move(data);
        frame.Describe(bytes.data(), bytes.size(), bytes.size(), stride, 77, 12345, nullptr);
        frame.SetWidth(width);
        frame.SetHeight(height);
        frame.SetPixelType(pixelType);
    }
    // The destination's bytes beyond the result are filled with a marker, checked afterwards.
    void Destination(size_t capacity, uint8_t marker = 0xA5) {
        bytes.assign(capacity + 64, marker);
        frame.Describe(bytes.data(), 0, capacity, 0, 0, 0, nullptr);
    }
    bool UntouchedFrom(size_t offset, uint8_t marker = 0xA5) const {
        for (size_t i = offset; i < bytes.size(); ++i) {
            if (bytes[i] != marker)
                return false;
        }
        return true;
    }
    uint32_t Sample8(size_t index) const { return bytes[index]; }
    uint32_t Sample16(size_t index) const {
        uint16_t v;
        std::memcpy(&v, bytes.data() + 2 * index, 2);
        return v;
    }
};

int Mirror(int i, int n) {
    if (i < 0)
        return -i;
    if (i >= n)
        return 2 * n - 2 - i;
    return i;
}

// The colour ('R', 'G' or 'B') of pixel (x, y) of a mosaic.
char ColourAt(const char* mosaic, int x, int y) {
    return mosaic[(y & 1) * 2 + (x & 1)];
}

int Channel(char colour) {
    return colour == 'R' ? 0 : colour == 'G' ? 1 : 2;
}

// Textbook nearest neighbour on 2 x 2 cells from the top-left corner, borders mirrored: a pixel
// takes the cell's red and blue, and the green of its own row of the cell.
std::vector<uint32_t> NearestReference(const std::vector<uint32_t>& v, int w, int h,
                                       const char* mosaic) {
    std::vector<uint32_t> out(size_t(w) * h * 3);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const int cx = x - x % 2;
            const int cy = y - y % 2;
            for (int dy = 0; dy < 2; ++dy) {
                for (int dx = 0; dx < 2; ++dx) {
                    const int sx = Mirror(cx + dx, w);
                    const int sy = Mirror(cy + dy, h);
                    const char colour = ColourAt(mosaic, cx + dx, cy + dy);
                    if (colour == 'G' && cy + dy != y)
                        continue; // the green of the other row
                    out[(size_t(y) * w + x) * 3 + Channel(colour)] = v[size_t(sy) * w + sx];
                }
            }
        }
    }
    return out;
}

// Textbook bilinear, borders mirrored: each missing colour is the rounded mean of the nearest
// pixels of that colour among the eight neighbours.
std::vector<uint32_t> BilinearReference(const std::vector<uint32_t>& v, int w, int h,
                                        const char* mosaic) {
    std::vector<uint32_t> out(size_t(w) * h * 3);
    auto at = [&](int x, int y) { return v[size_t(Mirror(y, h)) * w + Mirror(x, w)]; };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            uint32_t* o = &out[(size_t(y) * w + x) * 3];
            const char own = ColourAt(mosaic, x, y);
            for (char colour : {'R', 'G', 'B'}) {
                uint32_t result;
                if (colour == own) {
                    result = at(x, y);
                } else if (own != 'G' && colour == 'G') {
                    result = (at(x - 1, y) + at(x + 1, y) + at(x, y - 1) + at(x, y + 1) + 2) / 4;
                } else if (own != 'G') {
                    result = (at(x - 1, y - 1) + at(x + 1, y - 1) + at(x - 1, y + 1) +
                              at(x + 1, y + 1) + 2) /
                             4;
                } else if (ColourAt(mosaic, x + 1, y) == colour) {
                    result = (at(x - 1, y) + at(x + 1, y) + 1) / 2;
                } else {
                    result = (at(x, y - 1) + at(x, y + 1) + 1) / 2;
                }
                o[Channel(colour)] = result;
            }
        }
    }
    return out;
}

// Full-range BT.601.
void YuvReference(double y, double u, double v, double* rgb) {
    rgb[0] = y + 1.402 * (v - 128);
    rgb[1] = y - 0.344136 * (u - 128) - 0.714136 * (v - 128);
    rgb[2] = y + 1.772 * (u - 128);
    for (int i = 0; i < 3; ++i)
        rgb[i] = std::min(255.0, std::max(0.0, rgb[i]));
}

struct Size {
    int w, h;
};
const Size kSizes[] = {{1, 1}, {7, 5}, {2, 2}, {3, 2}, {40, 6}, {51, 4}, {67, 5}, {33, 3}};

} // namespace

class TestSdkConvert : public QObject {
    Q_OBJECT

    // Converts and checks what every conversion promises: status, size, type, data size,
    // stride, nothing written past the result.
    void convertAndCheckFrame(Image& source, Image& dest, uint32_t code, uint32_t bitDepth,
                              uint32_t expectedType, size_t expectedBytes,
                              void* context = nullptr) {
        dest.Destination(expectedBytes + 16);
        QCOMPARE(dest.frame.Convert(source.frame, code, bitDepth, 1, context), QRN_OK);
        QCOMPARE(dest.frame.Width(), source.frame.Width());
        QCOMPARE(dest.frame.Height(), source.frame.Height());
        QCOMPARE(dest.frame.PixelType(), expectedType);
        QCOMPARE(dest.frame.DataSize(), expectedBytes);
        QCOMPARE(size_t(dest.frame.Stride()), expectedBytes / source.frame.Height());
        QCOMPARE(dest.frame.BlockId(), uint64_t(77));
        QCOMPARE(dest.frame.Timestamp(), uint64_t(12345));
        QVERIFY(dest.UntouchedFrom(expectedBytes));
    }

private slots:
    void monoFormats_data() {
        QTest::addColumn<QString>("format");
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        for (const Format& f : kMonoFormats) {
            for (const Size& s : kSizes)
                QTest::addRow("%s %dx%d", f.name, s.w, s.h) << f.name << s.w << s.h;
        }
    }
    // Every mono format to 8 bits (its top 8 bits, display type or Mono8) and to 16 bits (its
    // values unchanged, Mono16; 8-bit sources stay 8-bit).
    void monoFormats() {
        QFETCH(QString, format);
        QFETCH(int, width);
        QFETCH(int, height);
        const Format& f = *FindFormat(format);
        const auto values = RandomValues(size_t(width) * height, f.bits, width * 131 + height);
        Image source, dest;
        source.Source(width, height, f.code, Encode(f, values));
        const size_t pixels = values.size();

        for (uint32_t code : {0u, 4u, 8u, 12u}) {
            const uint32_t type = (code & 4) ? kDisplayGrey : kMono8;
            convertAndCheckFrame(source, dest, code, 8, type, pixels);
            for (size_t i = 0; i < pixels; ++i)
                QCOMPARE(dest.Sample8(i), values[i] >> (f.bits - 8));
        }
        if (f.bits == 8) {
            convertAndCheckFrame(source, dest, 4, 0, kDisplayGrey, pixels);
            for (size_t i = 0; i < pixels; ++i)
                QCOMPARE(dest.Sample8(i), values[i]);
        } else {
            for (uint32_t code : {0u, 4u}) {
                convertAndCheckFrame(source, dest, code, 0, kMono16, 2 * pixels);
                for (size_t i = 0; i < pixels; ++i)
                    QCOMPARE(dest.Sample16(i), values[i]);
            }
        }
    }

    void bayerFormats_data() {
        QTest::addColumn<QString>("format");
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        for (const Format& f : kBayerFormats) {
            for (const Size& s : kSizes)
                QTest::addRow("%s %dx%d", f.name, s.w, s.h) << f.name << s.w << s.h;
        }
    }
    // Every Bayer format: without interpolation the mosaic as grey; nearest neighbour and
    // bilinear to RGB in 8 bits (interpolating the top 8 bits) and 16 bits (the values).
    void bayerFormats() {
        QFETCH(QString, format);
        QFETCH(int, width);
        QFETCH(int, height);
        const Format& f = *FindFormat(format);
        const auto values = RandomValues(size_t(width) * height, f.bits, width * 7 + height);
        std::vector<uint32_t> top8(values.size());
        for (size_t i = 0; i < values.size(); ++i)
            top8[i] = values[i] >> (f.bits - 8);
        Image source, dest;
        source.Source(width, height, f.code, Encode(f, values));
        const size_t pixels = values.size();

        convertAndCheckFrame(source, dest, 4, 8, kDisplayGrey, pixels);
        for (size_t i = 0; i < pixels; ++i)
            QCOMPARE(dest.Sample8(i), top8[i]);
        convertAndCheckFrame(source, dest, 0, 8, kMono8, pixels);
        if (f.bits > 8) {
            convertAndCheckFrame(source, dest, 4, 0, kMono16, 2 * pixels);
            for (size_t i = 0; i < pixels; ++i)
                QCOMPARE(dest.Sample16(i), values[i]);
        }

        if (width < 2 || height < 2) {
            // Too small to interpolate: refused, nothing written.
            dest.Destination(3 * 2 * pixels + 16);
            QCOMPARE(dest.frame.Convert(source.frame, 3, 8, 1, nullptr), QRN_ERR_INVALID);
            QVERIFY(dest.UntouchedFrom(0));
            return;
        }
        for (uint32_t method : {1u, 3u}) {
            const auto expected8 = method == 1 ? NearestReference(top8, width, height, f.mosaic)
                                               : BilinearReference(top8, width, height, f.mosaic);
            convertAndCheckFrame(source, dest, method | 4, 8, kDisplayRgb, 3 * pixels);
            for (size_t i = 0; i < 3 * pixels; ++i) {
                if (dest.Sample8(i) != expected8[i])
                    QFAIL(qPrintable(QString("method %1: sample %2 of pixel (%3, %4) is %5, not %6")
                                         .arg(method)
                                         .arg(i % 3)
                                         .arg(i / 3 % width)
                                         .arg(i / 3 / width)
                                         .arg(dest.Sample8(i))
                                         .arg(expected8[i])));
            }
            convertAndCheckFrame(source, dest, method | 8, 8, kRgb8, 3 * pixels);
            for (size_t i = 0; i < 3 * pixels; ++i)
                QCOMPARE(dest.Sample8(i), expected8[i]);
            if (f.bits > 8) {
                const auto expected16 = method == 1
                                            ? NearestReference(values, width, height, f.mosaic)
                                            : BilinearReference(values, width, height, f.mosaic);
                convertAndCheckFrame(source, dest, method | 4, 0, kRgb16, 6 * pixels);
                for (size_t i = 0; i < 3 * pixels; ++i)
                    QCOMPARE(dest.Sample16(i), expected16[i]);
            }
        }
    }

    // Larger images, split across threads when a conversion context is given, match the
    // single-threaded result and the reference.
    void largeImagesWithAndWithoutContext_data() {
        QTest::addColumn<QString>("format");
        QTest::addColumn<uint32_t>("code");
        QTest::newRow("BayerRG8 bilinear") << "BayerRG8" << 3u;
        QTest::newRow("BayerGB8 nearest") << "BayerGB8" << 1u;
        QTest::newRow("BayerBG12Packed bilinear") << "BayerBG12Packed" << 3u;
        QTest::newRow("Mono12Packed") << "Mono12Packed" << 0u;
        QTest::newRow("Mono16") << "Mono16" << 0u;
    }
    void largeImagesWithAndWithoutContext() {
        QFETCH(QString, format);
        QFETCH(uint32_t, code);
        const Format& f = *FindFormat(format);
        const int width = 515, height = 301;
        const auto values = RandomValues(size_t(width) * height, f.bits, 99);
        std::vector<uint32_t> top8(values.size());
        for (size_t i = 0; i < values.size(); ++i)
            top8[i] = values[i] >> (f.bits - 8);
        std::vector<uint32_t> expected = top8;
        if (code == 1)
            expected = NearestReference(top8, width, height, f.mosaic);
        else if (code == 3)
            expected = BilinearReference(top8, width, height, f.mosaic);
        const uint32_t type = code ? kDisplayRgb : kDisplayGrey;

        Image source, single, threaded;
        source.Source(width, height, f.code, Encode(f, values));
        convertAndCheckFrame(source, single, code | 4, 8, type, expected.size());
        CKorvatinCamera camera;
        QVERIFY(camera.ConversionContext() != nullptr);
        convertAndCheckFrame(source, threaded, code | 4, 8, type, expected.size(),
                             camera.ConversionContext());
        for (size_t i = 0; i < expected.size(); ++i) {
            QCOMPARE(single.Sample8(i), expected[i]);
            QCOMPARE(threaded.Sample8(i), expected[i]);
        }
    }

    // Two threads converting at once with the same context (the display and the recorder do)
    // both get their own exact result.
    void concurrentConversionsShareTheContext() {
        const Format& f = *FindFormat("BayerGR8");
        const int width = 400, height = 260;
        const auto first = RandomValues(size_t(width) * height, 8, 11);
        const auto second = RandomValues(size_t(width) * height, 8, 12);
        const auto expectedFirst = BilinearReference(first, width, height, f.mosaic);
        const auto expectedSecond = NearestReference(second, width, height, f.mosaic);
        CKorvatinCamera camera;
        void* context = camera.ConversionContext();
        Image sourceA, sourceB, destA, destB;
        sourceA.Source(width, height, f.code, Encode(f, first));
        sourceB.Source(width, height, f.code, Encode(f, second));
        destA.Destination(expectedFirst.size());
        destB.Destination(expectedSecond.size());
        std::atomic<int> failures{0};
        std::thread other([&] {
            for (int i = 0; i < 20; ++i) {
                if (destB.frame.Convert(sourceB.frame, 13, 8, 1, context) != QRN_OK ||
                    !std::equal(expectedSecond.begin(), expectedSecond.end(), destB.bytes.begin()))
                    ++failures;
            }
        });
        for (int i = 0; i < 20; ++i) {
            QCOMPARE(destA.frame.Convert(sourceA.frame, 15, 8, 1, context), QRN_OK);
            QVERIFY(std::equal(expectedFirst.begin(), expectedFirst.end(), destA.bytes.begin()));
        }
        other.join();
        QCOMPARE(failures.load(), 0);
        QVERIFY(destA.UntouchedFrom(expectedFirst.size()));
        QVERIFY(destB.UntouchedFrom(expectedSecond.size()));
    }

    void colourFormats_data() {
        QTest::addColumn<uint32_t>("code");
        QTest::addColumn<int>("bytesPerPixel");
        QTest::addColumn<QString>("order");
        QTest::newRow("RGB8") << 0x02180014u << 3 << "RGB";
        QTest::newRow("BGR8") << 0x02180015u << 3 << "BGR";
        QTest::newRow("RGBa8") << 0x02200016u << 4 << "RGBA";
        QTest::newRow("BGRa8") << 0x02200017u << 4 << "BGRA";
    }
    // RGB, BGR, RGBa, BGRa to R, G, B bytes; they stay 8-bit whatever the bit depth asked.
    void colourFormats() {
        QFETCH(uint32_t, code);
        QFETCH(int, bytesPerPixel);
        QFETCH(QString, order);
        for (const Size& s : kSizes) {
            const size_t pixels = size_t(s.w) * s.h;
            const auto values = RandomValues(pixels * bytesPerPixel, 8, s.w + s.h);
            std::vector<uint8_t> bytes(values.begin(), values.end());
            Image source, dest;
            source.Source(s.w, s.h, code, bytes);
            for (uint32_t bitDepth : {8u, 0u}) {
                for (uint32_t conversion : {0u, 4u, 7u}) {
                    convertAndCheckFrame(source, dest, conversion, bitDepth,
                                         (conversion & 4) ? kDisplayRgb : kRgb8, 3 * pixels);
                    for (size_t p = 0; p < pixels; ++p) {
                        for (int c = 0; c < 3; ++c) {
                            const int at = order.indexOf(QChar("RGB"[c]));
                            QCOMPARE(dest.Sample8(3 * p + c),
                                     uint32_t(bytes[p * bytesPerPixel + at]));
                        }
                    }
                }
            }
        }
    }

    void yuvFormats_data() {
        QTest::addColumn<uint32_t>("code");
        QTest::addColumn<QString>("order");
        QTest::newRow("YUV422_8_UYVY") << 0x0210001fu << "UYVY";
        QTest::newRow("YUV422_8") << 0x02100032u << "YUYV";
    }
    // 4:2:2 to RGB: both pixels of a pair share the pair's U and V; full-range BT.601, within
    // one level of the exact value. An odd width has no whole pair at its end and is refused.
    void yuvFormats() {
        QFETCH(uint32_t, code);
        QFETCH(QString, order);
        const int width = 38, height = 5;
        const size_t pixels = size_t(width) * height;
        const auto values = RandomValues(pixels * 2, 8, 5);
        std::vector<uint8_t> bytes(values.begin(), values.end());
        Image source, dest;
        source.Source(width, height, code, bytes);
        convertAndCheckFrame(source, dest, 4, 8, kDisplayRgb, 3 * pixels);
        for (size_t pair = 0; pair < pixels / 2; ++pair) {
            const uint8_t* q = &bytes[4 * pair];
            const int u = q[order.indexOf('U')];
            const int v = q[order.indexOf('V')];
            const int y0 = q[order.indexOf('Y')];
            const int y1 = q[order.lastIndexOf('Y')];
            for (int k = 0; k < 2; ++k) {
                double rgb[3];
                YuvReference(k ? y1 : y0, u, v, rgb);
                for (int c = 0; c < 3; ++c) {
                    const double got = dest.Sample8((2 * pair + k) * 3 + c);
                    QVERIFY2(std::fabs(got - rgb[c]) <= 1.0,
                             qPrintable(QString("pixel %1 channel %2: %3 for %4")
                                            .arg(2 * pair + k)
                                            .arg(c)
                                            .arg(got)
                                            .arg(rgb[c])));
                }
            }
        }
        // Grey and the extremes of chroma stay in range.
        source.Source(2, 1, code,
                      order == "UYVY" ? std::vector<uint8_t>{128, 200, 128, 17}
                                      : std::vector<uint8_t>{200, 128, 17, 128});
        convertAndCheckFrame(source, dest, 0, 8, kRgb8, 6);
        const uint32_t grey[6] = {200, 200, 200, 17, 17, 17};
        for (int i = 0; i < 6; ++i)
            QCOMPARE(dest.Sample8(i), grey[i]);
        source.Source(2, 1, code, std::vector<uint8_t>{255, 255, 255, 255});
        convertAndCheckFrame(source, dest, 0, 8, kRgb8, 6);
        QCOMPARE(dest.Sample8(0), 255u);
        QCOMPARE(dest.Sample8(2), 255u);

        source.Source(width - 1, height, code, bytes);
        dest.Destination(3 * pixels);
        QCOMPARE(dest.frame.Convert(source.frame, 4, 8, 1, nullptr), QRN_ERR_INVALID);
        QVERIFY(dest.UntouchedFrom(0));
    }

    // Lines further apart than their length (padding at each line's end) are read at the stride.
    void strideIsHonoured() {
        const int width = 21, height = 4, stride = 32;
        std::vector<uint8_t> bytes(size_t(stride) * (height - 1) + width, 0xEE);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                bytes[size_t(y) * stride + x] = uint8_t(y * 40 + x);
        }
        Image source, dest;
        source.Source(width, height, kMono8, bytes, stride);
        convertAndCheckFrame(source, dest, 4, 8, kDisplayGrey, size_t(width) * height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                QCOMPARE(dest.Sample8(size_t(y) * width + x), uint32_t(y * 40 + x));
        }

        std::vector<uint32_t> mosaic(size_t(width) * height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                mosaic[size_t(y) * width + x] = bytes[size_t(y) * stride + x];
        }
        source.Source(width, height, 0x01080009, bytes, stride);
        const auto expected = BilinearReference(mosaic, width, height, "RGGB");
        convertAndCheckFrame(source, dest, 7, 8, kDisplayRgb, expected.size());
        for (size_t i = 0; i < expected.size(); ++i)
            QCOMPARE(dest.Sample8(i), expected[i]);
    }

    // A flat grey mosaic stays flat grey through either interpolation, on every order.
    void flatMosaicStaysGrey() {
        for (uint32_t code : {0x01080008u, 0x01080009u, 0x0108000au, 0x0108000bu}) {
            Image source, dest;
            source.Source(50, 9, code, std::vector<uint8_t>(50 * 9, 93));
            for (uint32_t method : {1u, 3u}) {
                convertAndCheckFrame(source, dest, method | 4, 8, kDisplayRgb, 50 * 9 * 3);
                for (size_t i = 0; i < 50 * 9 * 3; ++i)
                    QCOMPARE(dest.Sample8(i), 93u);
            }
        }
    }

    // Code 2 interpolates like 3 (bilinear), a bit depth other than 0 gives 8 bits like 8, and
    // the flag changes nothing.
    void codeDepthAndFlagVariants() {
        const Format& f = *FindFormat("BayerBG12");
        const int width = 37, height = 9;
        const auto values = RandomValues(size_t(width) * height, f.bits, 21);
        std::vector<uint32_t> top8(values.size());
        for (size_t i = 0; i < values.size(); ++i)
            top8[i] = values[i] >> 4;
        const auto expected = BilinearReference(top8, width, height, f.mosaic);
        Image source, dest;
        source.Source(width, height, f.code, Encode(f, values));
        struct Variant {
            uint32_t code, bitDepth, flag, type;
        };
        for (const Variant& v : {Variant{2, 8, 1, kRgb8}, Variant{6, 16, 0, kDisplayRgb},
                                 Variant{15, 12, 7, kDisplayRgb}, Variant{11, 8, 0, kRgb8}}) {
            dest.Destination(expected.size() + 16);
            QCOMPARE(dest.frame.Convert(source.frame, v.code, v.bitDepth, v.flag, nullptr), QRN_OK);
            QCOMPARE(dest.frame.PixelType(), v.type);
            QCOMPARE(dest.frame.DataSize(), expected.size());
            for (size_t i = 0; i < expected.size(); ++i)
                QCOMPARE(dest.Sample8(i), expected[i]);
        }
    }

    // A conversion buffer from the camera (kind 0), sized from the frame's width, height and
    // pixel type, takes a result of that size, the conversion context splitting the rows.
    void intoAConversionBufferFromTheCamera() {
        const Format& f = *FindFormat("BayerRG8");
        const int width = 320, height = 240;
        const auto values = RandomValues(size_t(width) * height, 8, 31);
        const auto expected = BilinearReference(values, width, height, f.mosaic);
        Image source;
        source.Source(width, height, f.code, Encode(f, values));
        CKorvatinCamera camera;
        CKorvatinFrame holder;
        holder.SetWidth(width);
        holder.SetHeight(height);
        holder.SetPixelType(0x02180015); // BGR8: 24 bits a pixel
        QCOMPARE(camera.AllocateFrameBuffer(&holder, 0), QRN_OK);
        QVERIFY(holder.BufferSize() >= expected.size());
        QCOMPARE(holder.Convert(source.frame, 15, 8, 1, camera.ConversionContext()), QRN_OK);
        QCOMPARE(holder.PixelType(), kDisplayRgb);
        QCOMPARE(holder.DataSize(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i)
            QCOMPARE(uint32_t(holder.Data()[i]), expected[i]);
        // The same buffer is too small for 16 bits per channel of a deeper source.
        const Format& deep = *FindFormat("BayerRG12");
        Image deepSource;
        deepSource.Source(width, height, deep.code,
                          Encode(deep, RandomValues(size_t(width) * height, 12, 32)));
        QCOMPARE(holder.Convert(deepSource.frame, 7, 0, 1, camera.ConversionContext()),
                 QRN_ERR_INVALID);
        QCOMPARE(holder.PixelType(), kDisplayRgb);
        QCOMPARE(camera.ReleaseFrameBuffer(&holder), QRN_OK);
    }

    // A destination too small for the result is refused before anything is written, and the
    // destination keeps its description.
    void destinationTooSmallIsAnError() {
        const Format& f = *FindFormat("BayerRG12Packed");
        const auto values = RandomValues(16 * 8, 12, 3);
        Image source, dest;
        source.Source(16, 8, f.code, Encode(f, values));
        struct Case {
            uint32_t code, bitDepth;
            size_t needed;
        };
        for (const Case& c : {Case{4, 8, 128}, Case{3, 8, 384}, Case{7, 0, 768}, Case{0, 0, 256}}) {
            dest.bytes.assign(c.needed + 64, 0x5A);
            dest.frame.Describe(dest.bytes.data(), 0, c.needed - 1, 0, 0, 0, nullptr);
            dest.frame.SetWidth(3);
            dest.frame.SetHeight(2);
            dest.frame.SetPixelType(0x01080001);
            QCOMPARE(dest.frame.Convert(source.frame, c.code, c.bitDepth, 1, nullptr),
                     QRN_ERR_INVALID);
            QVERIFY(dest.UntouchedFrom(0, 0x5A));
            QCOMPARE(dest.frame.Width(), 3u);
            QCOMPARE(dest.frame.Height(), 2u);
            QCOMPARE(dest.frame.PixelType(), 0x01080001u);
            QCOMPARE(dest.frame.DataSize(), size_t(0));
            // One byte more is enough.
            dest.frame.Describe(dest.bytes.data(), 0, c.needed, 0, 0, 0, nullptr);
            QCOMPARE(dest.frame.Convert(source.frame, c.code, c.bitDepth, 1, nullptr), QRN_OK);
            QCOMPARE(dest.frame.DataSize(), c.needed);
        }
        // No buffer at all.
        CKorvatinFrame empty;
        QCOMPARE(empty.Convert(source.frame, 4, 8, 1, nullptr), QRN_ERR_INVALID);
    }

    // A source whose data is shorter than its width and height need is refused, not overrun.
    void sourceTooShortIsAnError() {
        for (const char* name : {"Mono8", "Mono16", "Mono12Packed", "Mono10p", "BayerGR8"}) {
            const Format& f = *FindFormat(name);
            auto bytes = Encode(f, RandomValues(9 * 4, f.bits, 1));
            bytes.pop_back();
            Image source, dest;
            source.Source(9, 4, f.code, bytes);
            dest.Destination(1024);
            QCOMPARE(dest.frame.Convert(source.frame, 7, 8, 1, nullptr), QRN_ERR_INVALID);
            QVERIFY(dest.UntouchedFrom(0));
        }
    }

    // An unknown source format, or one that is not an image, is unsupported and nothing is
    // written.
    void unknownFormatIsUnsupported() {
        for (uint32_t code : {0u, 0x021800B2u /* Coord3D_ABC8 */, 0x0110001eu, 0xFFFFFFFFu}) {
            Image source, dest;
            source.Source(4, 4, code, std::vector<uint8_t>(64, 1));
            dest.Destination(256);
            dest.frame.SetPixelType(0x01080001);
            QCOMPARE(dest.frame.Convert(source.frame, 7, 8, 1, nullptr), QRN_ERR_UNSUPPORTED);
            QVERIFY(dest.UntouchedFrom(0));
            QCOMPARE(dest.frame.PixelType(), 0x01080001u);
        }
    }
};

QTEST_GUILESS_MAIN(TestSdkConvert)
#include "tst_sdkconvert.moc"
