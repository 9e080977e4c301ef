// Bayer mosaics to RGB: nearest neighbour and bilinear, row by row.
#include "convertbayer.h"

#include "convertbayervector.h"

#include <vector>

namespace korvatin {

namespace {

// What one row of the mosaic holds: whether its even pixels are green, and whether its other
// colour is red (else blue). The next row has the opposite of both.
struct RowKind {
    bool greenFirst;
    bool redRow;
};

RowKind KindOf(BayerOrder order, uint32_t y) {
    RowKind kind{};
    switch (order) {
    case BayerOrder::RG:
        kind = {false, true};
        break;
    case BayerOrder::GR:
        kind = {true, true};
        break;
    case BayerOrder::GB:
        kind = {true, false};
        break;
    default:
        kind = {false, false};
        break;
    }
    if (y & 1) {
        kind.greenFirst = !kind.greenFirst;
        kind.redRow = !kind.redRow;
    }
    return kind;
}

// Mirrors an index about the outermost pixel: -1 -> 1, n -> n - 2.
inline uint32_t Mirror(int64_t i, uint32_t n) {
    if (i < 0)
        return uint32_t(-i);
    if (i >= int64_t(n))
        return uint32_t(2 * int64_t(n) - 2 - i);
    return uint32_t(i);
}

// The last three source rows a band needed, unpacked once each. 8-bit mosaics are read in place.
template <typename T> class RowCache {
public:
    RowCache(const MonoImage& image) : image_(image) {
        direct_ = sizeof(T) == 1 && image.format->packing == SourcePacking::Bits8;
        if (!direct_) {
            for (auto& slot : slots_)
                slot.resize(image.width);
        }
    }
    const T* Row(uint32_t y) {
        if (direct_)
            return reinterpret_cast<const T*>(image_.data + size_t(y) * image_.stride);
        const uint32_t slot = y % 3;
        if (tags_[slot] != int64_t(y)) {
            UnpackRow(image_, y, slots_[slot].data());
            tags_[slot] = y;
        }
        return slots_[slot].data();
    }

private:
    MonoImage image_;
    bool direct_ = false;
    std::vector<T> slots_[3];
    int64_t tags_[3] = {-1, -1, -1};
};

// ---- Bilinear, portable ----

// One output pixel at x, with its left and right neighbours at xl and xr. `k` is the channel of
// the row's own non-green colour (0 red, 2 blue).
template <typename T>
inline void BilinearPixel(const T* a, const T* c, const T* b, uint32_t xl, uint32_t x, uint32_t xr,
                          bool green, int k, T* o) {
    if (green) {
        o[1] = c[x];
        o[k] = T((uint32_t(c[xl]) + c[xr] + 1) >> 1);
        o[2 - k] = T((uint32_t(a[x]) + b[x] + 1) >> 1);
    } else {
        o[k] = c[x];
        o[1] = T((uint32_t(c[xl]) + c[xr] + a[x] + b[x] + 2) >> 2);
        o[2 - k] = T((uint32_t(a[xl]) + a[xr] + b[xl] + b[xr] + 2) >> 2);
    }
}

// Pixels [x0, x1) with mirrored neighbours: for the ends of a row.
template <typename T>
void BilinearEdge(const T* a, const T* c, const T* b, uint32_t width, RowKind kind, uint32_t x0,
                  uint32_t x1, T* out) {
    const int k = kind.redRow ? 0 : 2;
    for (uint32_t x = x0; x < x1; ++x) {
        const bool green = ((x & 1) == 0) == kind.greenFirst;
        BilinearPixel(a, c, b, Mirror(int64_t(x) - 1, width), x, Mirror(int64_t(x) + 1, width),
                      green, k, out + 3 * size_t(x));
    }
}

// Pixels [1, width - 1) two at a time, the pattern known at compile time.
template <typename T, bool GreenFirst, bool RedRow>
void BilinearInterior(const T* a, const T* c, const T* b, uint32_t width, T* out) {
    constexpr int k = RedRow ? 0 : 2;
    // x is odd: green exactly when the even pixels are not.
    uint32_t x = 1;
    for (; x + 2 < width; x += 2) {
        BilinearPixel(a, c, b, x - 1, x, x + 1, !GreenFirst, k, out + 3 * size_t(x));
        BilinearPixel(a, c, b, x, x + 1, x + 2, GreenFirst, k, out + 3 * size_t(x) + 3);
    }
    if (x + 1 < width)
        BilinearPixel(a, c, b, x - 1, x, x + 1, !GreenFirst, k, out + 3 * size_t(x));
}

template <typename T>
void BilinearRowPortable(const T* a, const T* c, const T* b, uint32_t width, RowKind kind, T* out) {
    BilinearEdge(a, c, b, width, kind, 0, 1, out);
    if (kind.greenFirst)
        kind.redRow ? BilinearInterior<T, true, true>(a, c, b, width, out)
                    : BilinearInterior<T, true, false>(a, c, b, width, out);
    else
        kind.redRow ? BilinearInterior<T, false, true>(a, c, b, width, out)
                    : BilinearInterior<T, false, false>(a, c, b, width, out);
    BilinearEdge(a, c, b, width, kind, width - 1, width, out);
}

// ---- Nearest neighbour, portable ----

// One output row from its own source row and the other row of its cells. `gc` is the column
// of the green in the own row's cells, `k` the channel of the own row's other colour.
template <typename T>
void NearestRowPortable(const T* own, const T* partner, uint32_t width, RowKind kind, uint32_t x0,
                        T* out) {
    const uint32_t gc = kind.greenFirst ? 0 : 1;
    const int k = kind.redRow ? 0 : 2;
    uint32_t x = x0;
    for (; x + 2 <= width; x += 2) {
        const T g = own[x + gc];
        const T mine = own[x + 1 - gc];
        const T other = partner[x + gc];
        T* o = out + 3 * size_t(x);
        o[1] = g;
        o[k] = mine;
        o[2 - k] = other;
        o[4] = g;
        o[3 + k] = mine;
        o[5 - k] = other;
    }
    if (x < width) {
        // A last column of its own (odd width): its cell's second column is mirrored.
        const uint32_t colG = Mirror(int64_t(x) + gc, width);
        const uint32_t colMine = Mirror(int64_t(x) + 1 - gc, width);
        T* o = out + 3 * size_t(x);
        o[1] = own[colG];
        o[k] = own[colMine];
        o[2 - k] = partner[colG];
    }
}

#ifdef KORVATIN_X86

void BilinearRowFast(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                     RowKind kind, uint8_t* out) {
    // The widest runs the processor allows, then narrower ones for what is left of the row,
    // then pixel by pixel. Each kernel starts 2 pixels into the part it is given.
    uint32_t end = 2;
    const auto rest = [&](uint32_t run, auto kernel) {
        if (end + run + 1 > width)
            return;
        const uint32_t from = end - 2;
        end = from + kernel(a + from, c + from, b + from, width - from, kind.greenFirst,
                            kind.redRow, out + 3 * size_t(from));
    };
    if (CpuHasAvx512Vbmi())
        rest(64, BilinearRunsAvx512);
    if (CpuHasAvx2())
        rest(32, BilinearRunsAvx2);
    rest(16, BilinearRunsSsse3);
    BilinearEdge(a, c, b, width, kind, 0, 2, out);
    BilinearEdge(a, c, b, width, kind, end, width, out);
}

#endif // KORVATIN_X86

template <typename T>
void DemosaicRows(const MonoImage& image, uint32_t height, BayerOrder order, BayerMethod method,
                  uint32_t firstRow, uint32_t endRow, T* out) {
    const uint32_t width = image.width;
    RowCache<T> rows(image);
    const size_t outLine = size_t(width) * 3;
#ifdef KORVATIN_X86
    const bool fast = sizeof(T) == 1 && CpuHasSsse3();
#endif
    if (method == BayerMethod::Bilinear) {
        for (uint32_t y = firstRow; y < endRow; ++y) {
            const RowKind kind = KindOf(order, y);
            const T* a = rows.Row(Mirror(int64_t(y) - 1, height));
            const T* c = rows.Row(y);
            const T* b = rows.Row(Mirror(int64_t(y) + 1, height));
            T* o = out + outLine * y;
#ifdef KORVATIN_X86
            if constexpr (sizeof(T) == 1) {
                if (fast) {
                    BilinearRowFast(a, c, b, width, kind, o);
                    continue;
                }
            }
#endif
            BilinearRowPortable(a, c, b, width, kind, o);
        }
        return;
    }
#ifdef KORVATIN_X86
    NearestShuffles masks[2];
    for (uint32_t parity = 0; parity < 2; ++parity) {
        const RowKind kind = KindOf(order, parity);
        masks[parity] = NearestShuffles(kind.greenFirst, kind.redRow);
    }
#endif
    for (uint32_t y = firstRow; y < endRow; ++y) {
        const RowKind kind = KindOf(order, y);
        // The other row of this row's cells, mirrored when an odd height cuts the last cell.
        const uint32_t partnerRow = (y & 1) ? y - 1 : Mirror(int64_t(y) + 1, height);
        const T* partner = rows.Row(partnerRow);
        const T* own = rows.Row(y);
        T* o = out + outLine * y;
        uint32_t x = 0;
#ifdef KORVATIN_X86
        if constexpr (sizeof(T) == 1) {
            if (fast)
                x = NearestRunsSsse3(own, partner, width, masks[y & 1], o);
        }
#endif
        NearestRowPortable(own, partner, width, kind, x, o);
    }
}

} // namespace

void DemosaicRows8(const MonoImage& image, uint32_t height, BayerOrder order, BayerMethod method,
                   uint32_t firstRow, uint32_t endRow, uint8_t* out) {
    DemosaicRows<uint8_t>(image, height, order, method, firstRow, endRow, out);
}

void DemosaicRows16(const MonoImage& image, uint32_t height, BayerOrder order, BayerMethod method,
                    uint32_t firstRow, uint32_t endRow, uint16_t* out) {
    DemosaicRows<uint16_t>(image, height, order, method, firstRow, endRow, out);
}

} // namespace korvatin
