// CFrameHistogram against a plain per-pixel count: random grey frames of 8, 12 and 16 bits and
// random 8- and 12-bit mosaics of every cell order, over the whole frame and over regions
// starting on odd columns and lines.
#include <framehistogram.h>

#include <QtTest>

#include <random>

namespace {

// Bayer pixel formats, GR, RG, GB, BG at 8 and 12 bits, with their 2 x 2 cells.
struct Mosaic {
    const char* name;
    uint32_t code;
    int bits;
    const char* cell;
};
const Mosaic kMosaics[] = {
    {"BayerGR8", 0x01080008, 8, "GRBG"},   {"BayerRG8", 0x01080009, 8, "RGGB"},
    {"BayerGB8", 0x0108000A, 8, "GBRG"},   {"BayerBG8", 0x0108000B, 8, "BGGR"},
    {"BayerGR12", 0x01100010, 12, "GRBG"}, {"BayerRG12", 0x01100011, 12, "RGGB"},
    {"BayerGB12", 0x01100012, 12, "GBRG"}, {"BayerBG12", 0x01100013, 12, "BGGR"},
};

// Random levels of `bits`, in runs of equal ones now and then, little-endian at 1 or 2 bytes.
std::vector<uint8_t> RandomPixels(uint32_t width, uint32_t height, uint32_t stride, int bits,
                                  uint32_t seed) {
    const uint32_t bytes = bits > 8 ? 2 : 1;
    std::vector<uint8_t> pixels(size_t(stride) * height);
    std::mt19937 random(seed);
    uint32_t level = 0;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            if (random() % 3 != 0)
                level = random() & ((1u << bits) - 1);
            uint8_t* p = pixels.data() + size_t(y) * stride + size_t(x) * bytes;
            p[0] = uint8_t(level);
            if (bytes == 2)
                p[1] = uint8_t(level >> 8);
        }
    }
    return pixels;
}

CFrameHistogram::Region RegionOf(const QRect& region) {
    if (region.isNull())
        return {};
    return {uint32_t(region.x()), uint32_t(region.y()), uint32_t(region.width()),
            uint32_t(region.height())};
}

} // namespace

class TestFrameHistogram : public QObject {
    Q_OBJECT

private slots:
    void greyCountsEveryLevel_data() {
        QTest::addColumn<int>("bits");
        QTest::addColumn<QRect>("region");
        for (const auto& [code, bits] :
             {std::pair<const char*, int>{"Mono8", 8}, {"Mono12", 12}, {"Mono16", 16}}) {
            QTest::newRow(QByteArray(code) + " whole") << bits << QRect();
            QTest::newRow(QByteArray(code) + " odd region") << bits << QRect(5, 3, 77, 41);
            QTest::newRow(QByteArray(code) + " one column") << bits << QRect(9, 1, 1, 50);
        }
    }

    void greyCountsEveryLevel() {
        QFETCH(int, bits);
        QFETCH(QRect, region);
        const uint32_t width = 131, height = 57;
        const uint32_t bytes = bits > 8 ? 2 : 1;
        const uint32_t stride = width * bytes + 4;
        std::vector<uint8_t> pixels = RandomPixels(width, height, stride, bits, uint32_t(bits));
        CKorvatinFrame frame;
        frame.Describe(pixels.data(), pixels.size(), pixels.size(), stride, 1, 0, nullptr);
        frame.SetWidth(width);
        frame.SetHeight(height);
        frame.SetPixelType(bits == 8 ? 0x01080001 : bits == 12 ? 0x01100005 : 0x01100007);
        CFrameHistogram histogram;
        QVERIFY(histogram.Add(frame, 0, RegionOf(region), nullptr));
        QCOMPARE(histogram.Bits(), bits);
        QCOMPARE(histogram.Channels().size(), size_t(1));

        std::vector<uint64_t> expected(size_t(1) << bits, 0);
        const QRect counted = region.isNull() ? QRect(0, 0, int(width), int(height)) : region;
        for (int y = counted.top(); y <= counted.bottom(); ++y) {
            for (int x = counted.left(); x <= counted.right(); ++x) {
                const uint8_t* p = pixels.data() + size_t(y) * stride + size_t(x) * bytes;
                ++expected[bytes == 2 ? (p[0] | (uint32_t(p[1]) << 8)) : p[0]];
            }
        }
        QVERIFY(histogram.Channels()[0].bins == expected);
    }

    void mosaicCountsEveryCellIntoItsColour_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<QRect>("region");
        for (int i = 0; i < int(std::size(kMosaics)); ++i) {
            const QByteArray name = kMosaics[i].name;
            QTest::newRow(name + " whole") << i << QRect();
            QTest::newRow(name + " odd column") << i << QRect(3, 2, 101, 40);
            QTest::newRow(name + " odd line") << i << QRect(6, 5, 58, 33);
            QTest::newRow(name + " odd both, narrow") << i << QRect(11, 7, 3, 9);
        }
    }

    void mosaicCountsEveryCellIntoItsColour() {
        QFETCH(int, index);
        QFETCH(QRect, region);
        const Mosaic& mosaic = kMosaics[index];
        const uint32_t width = 130, height = 61;
        const uint32_t bytes = mosaic.bits > 8 ? 2 : 1;
        // A stride wider than the line, as a padded buffer has.
        const uint32_t stride = width * bytes + 6;
        // Runs of equal levels as well as random ones: the counting must not lose repeated ones.
        std::vector<uint8_t> pixels = RandomPixels(width, height, stride, mosaic.bits,
                                                   uint32_t(index) * 7919u + uint32_t(region.x()));
        CKorvatinFrame frame;
        frame.Describe(pixels.data(), pixels.size(), pixels.size(), stride, 1, 0, nullptr);
        frame.SetWidth(width);
        frame.SetHeight(height);
        frame.SetPixelType(mosaic.code);

        CFrameHistogram histogram;
        QVERIFY(histogram.Add(frame, 3, RegionOf(region), nullptr));
        QCOMPARE(histogram.Bits(), mosaic.bits);
        QCOMPARE(histogram.Channels().size(), size_t(3));

        // The count every pixel of the region makes, one at a time.
        std::vector<std::vector<uint64_t>> expected(
            3, std::vector<uint64_t>(size_t(1) << mosaic.bits, 0));
        const QRect whole(0, 0, int(width), int(height));
        const QRect counted = region.isNull() ? whole : region;
        for (int y = counted.top(); y <= counted.bottom(); ++y) {
            for (int x = counted.left(); x <= counted.right(); ++x) {
                const uint8_t* p = pixels.data() + size_t(y) * stride + size_t(x) * bytes;
                const uint32_t value = bytes == 2 ? (p[0] | (uint32_t(p[1]) << 8)) : p[0];
                const char c = mosaic.cell[(y & 1) * 2 + (x & 1)];
                ++expected[c == 'R' ? 0 : c == 'G' ? 1 : 2][value];
            }
        }
        for (int c = 0; c < 3; ++c)
            QVERIFY2(histogram.Channels()[size_t(c)].bins == expected[size_t(c)],
                     histogram.Channels()[size_t(c)].name.c_str());
    }
};

QTEST_GUILESS_MAIN(TestFrameHistogram)
#include "tst_framehistogram.moc"
