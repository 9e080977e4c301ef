// The bilinear row kernel, written once over a vector type; included by the files that build
// it for one instruction set each.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korvatin {
namespace {

// Output block k of 16 interleaved RGB pixels takes channel ch's byte j / 3 where j % 3 == ch:
// kRgbShuffles.m[k][ch] is that shuffle, repeated in both 16-byte halves for 32-byte registers.
struct RgbShuffles {
    uint8_t m[3][3][32];
};
constexpr RgbShuffles MakeRgbShuffles() {
    RgbShuffles s{};
    for (int j = 0; j < 48; ++j) {
        for (int ch = 0; ch < 3; ++ch) {
            const uint8_t pick = (j % 3 == ch) ? uint8_t(j / 3) : uint8_t(0x80);
            s.m[j / 16][ch][j % 16] = pick;
            s.m[j / 16][ch][16 + j % 16] = pick;
        }
    }
    return s;
}
alignas(32) constexpr RgbShuffles kRgbShuffles = MakeRgbShuffles();

// Bilinear over runs of Ops::kPixels pixels (see BilinearRunsSsse3). All arithmetic stays in
// bytes: with x = avg(p, q) and y = avg(r, s), each rounded up, (p + q + r + s + 2) / 4 is
// avg(x, y), less one when x + y is odd and p + q or r + s was odd.
template <typename Ops, bool GreenFirst, bool RedRow>
uint32_t BilinearRuns(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                      uint8_t* out) {
    using V = typename Ops::V;
    const V even = Ops::Even();
    const V one = Ops::One();
    uint32_t x = 2;
    for (; x + Ops::kPixels + 1 <= width; x += Ops::kPixels) {
        const V cl = Ops::Load(c + x - 1), c0 = Ops::Load(c + x), cr = Ops::Load(c + x + 1);
        const V al = Ops::Load(a + x - 1), a0 = Ops::Load(a + x), ar = Ops::Load(a + x + 1);
        const V bl = Ops::Load(b + x - 1), b0 = Ops::Load(b + x), br = Ops::Load(b + x + 1);
        const V h = Ops::Avg(cl, cr); // left and right
        const V v = Ops::Avg(a0, b0); // above and below
        const V crossOdd = Ops::Or(Ops::Xor(cl, cr), Ops::Xor(a0, b0));
        const V cross = Ops::Sub(Ops::Avg(h, v), Ops::And(Ops::And(crossOdd, Ops::Xor(h, v)), one));
        const V top = Ops::Avg(al, ar);
        const V bottom = Ops::Avg(bl, br);
        const V diagOdd = Ops::Or(Ops::Xor(al, ar), Ops::Xor(bl, br));
        const V diag = Ops::Sub(Ops::Avg(top, bottom),
                                Ops::And(Ops::And(diagOdd, Ops::Xor(top, bottom)), one));
        V mine, green, other;
        if (GreenFirst) {
            mine = Ops::Select(even, h, c0);
            green = Ops::Select(even, c0, cross);
            other = Ops::Select(even, v, diag);
        } else {
            mine = Ops::Select(even, c0, h);
            green = Ops::Select(even, cross, c0);
            other = Ops::Select(even, diag, v);
        }
        if (RedRow)
            Ops::StoreRgb(mine, green, other, out + 3 * size_t(x));
        else
            Ops::StoreRgb(other, green, mine, out + 3 * size_t(x));
    }
    return x;
}

template <typename Ops>
uint32_t BilinearRunsOf(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                        bool greenFirst, bool redRow, uint8_t* out) {
    if (greenFirst)
        return redRow ? BilinearRuns<Ops, true, true>(a, c, b, width, out)
                      : BilinearRuns<Ops, true, false>(a, c, b, width, out);
    return redRow ? BilinearRuns<Ops, false, true>(a, c, b, width, out)
                  : BilinearRuns<Ops, false, false>(a, c, b, width, out);
}

} // namespace
} // namespace korvatin
