// The pixel formats the simulated camera streams.
#include "pixelformats.h"

namespace camsim {

namespace {

using L = SampleLayout;
using M = YuvMatrix;

// GigE Vision's pixel-format table, every image format of it; YUV and YCbCr without a standard
// in the name are full-range BT.601, YCbCr601 and YCbCr709 studio range. Coord3D_ABC8 is the
// one format offered that is not an image, so that a host's refusal of it can be tried.
// clang-format off
const PixelFormatInfo kFormats[] = {
    {"Mono1p", 0x01010037, L::LsbPacked, 1},
    {"Mono2p", 0x01020038, L::LsbPacked, 2},
    {"Mono4p", 0x01040039, L::LsbPacked, 4},
    {"Mono8", 0x01080001, L::Byte, 8},
    {"Mono8s", 0x01080002, L::SignedByte, 8},
    {"Mono10", 0x01100003, L::Word, 10},
    {"Mono10p", 0x010A0046, L::LsbPacked, 10},
    {"Mono10Packed", 0x010C0004, L::GevPacked, 10},
    {"Mono12", 0x01100005, L::Word, 12},
    {"Mono12p", 0x010C0047, L::LsbPacked, 12},
    {"Mono12Packed", 0x010C0006, L::GevPacked, 12},
    {"Mono14", 0x01100025, L::Word, 14},
    {"Mono16", 0x01100007, L::Word, 16},
    {"BayerGR8", 0x01080008, L::Byte, 8, "GRBG"},
    {"BayerRG8", 0x01080009, L::Byte, 8, "RGGB"},
    {"BayerGB8", 0x0108000A, L::Byte, 8, "GBRG"},
    {"BayerBG8", 0x0108000B, L::Byte, 8, "BGGR"},
    {"BayerGR10", 0x0110000C, L::Word, 10, "GRBG"},
    {"BayerRG10", 0x0110000D, L::Word, 10, "RGGB"},
    {"BayerGB10", 0x0110000E, L::Word, 10, "GBRG"},
    {"BayerBG10", 0x0110000F, L::Word, 10, "BGGR"},
    {"BayerGR10p", 0x010A0056, L::LsbPacked, 10, "GRBG"},
    {"BayerRG10p", 0x010A0058, L::LsbPacked, 10, "RGGB"},
    {"BayerGB10p", 0x010A0054, L::LsbPacked, 10, "GBRG"},
    {"BayerBG10p", 0x010A0052, L::LsbPacked, 10, "BGGR"},
    {"BayerGR10Packed", 0x010C0026, L::GevPacked, 10, "GRBG"},
    {"BayerRG10Packed", 0x010C0027, L::GevPacked, 10, "RGGB"},
    {"BayerGB10Packed", 0x010C0028, L::GevPacked, 10, "GBRG"},
    {"BayerBG10Packed", 0x010C0029, L::GevPacked, 10, "BGGR"},
    {"BayerGR12", 0x01100010, L::Word, 12, "GRBG"},
    {"BayerRG12", 0x01100011, L::Word, 12, "RGGB"},
    {"BayerGB12", 0x01100012, L::Word, 12, "GBRG"},
    {"BayerBG12", 0x01100013, L::Word, 12, "BGGR"},
    {"BayerGR12p", 0x010C0057, L::LsbPacked, 12, "GRBG"},
    {"BayerRG12p", 0x010C0059, L::LsbPacked, 12, "RGGB"},
    {"BayerGB12p", 0x010C0055, L::LsbPacked, 12, "GBRG"},
    {"BayerBG12p", 0x010C0053, L::LsbPacked, 12, "BGGR"},
    {"BayerGR12Packed", 0x010C002A, L::GevPacked, 12, "GRBG"},
    {"BayerRG12Packed", 0x010C002B, L::GevPacked, 12, "RGGB"},
    {"BayerGB12Packed", 0x010C002C, L::GevPacked, 12, "GBRG"},
    {"BayerBG12Packed", 0x010C002D, L::GevPacked, 12, "BGGR"},
    {"BayerGR14", 0x01100109, L::Word, 14, "GRBG"},
    {"BayerRG14", 0x0110010A, L::Word, 14, "RGGB"},
    {"BayerGB14", 0x0110010B, L::Word, 14, "GBRG"},
    {"BayerBG14", 0x0110010C, L::Word, 14, "BGGR"},
    {"BayerGR16", 0x0110002E, L::Word, 16, "GRBG"},
    {"BayerRG16", 0x0110002F, L::Word, 16, "RGGB"},
    {"BayerGB16", 0x01100030, L::Word, 16, "GBRG"},
    {"BayerBG16", 0x01100031, L::Word, 16, "BGGR"},
    {"RGB8", 0x02180014, L::Rgb8, 8},
    {"BGR8", 0x02180015, L::Rgb8, 8, "", true},
    {"RGBa8", 0x02200016, L::Rgba8, 8},
    {"BGRa8", 0x02200017, L::Rgba8, 8, "", true},
    {"RGB10", 0x02300018, L::Rgb16, 10},
    {"BGR10", 0x02300019, L::Rgb16, 10, "", true},
    {"RGB12", 0x0230001A, L::Rgb16, 12},
    {"BGR12", 0x0230001B, L::Rgb16, 12, "", true},
    {"RGB16", 0x02300033, L::Rgb16, 16},
    {"BGR16", 0x0230004B, L::Rgb16, 16, "", true},
    {"RGB10V1Packed", 0x0220001C, L::Rgb10V1, 10},
    {"RGB10p32", 0x0220001D, L::Rgb10p32, 10},
    {"RGB12V1Packed", 0x02240034, L::Rgb12V1, 12},
    {"RGB565p", 0x02100035, L::Rgb565, 5},
    {"BGR565p", 0x02100036, L::Rgb565, 5, "", true},
    {"RGB8_Planar", 0x02180021, L::Planar8, 8},
    {"RGB10_Planar", 0x02300022, L::Planar16, 10},
    {"RGB12_Planar", 0x02300023, L::Planar16, 12},
    {"RGB16_Planar", 0x02300024, L::Planar16, 16},
    {"YUV411_8_UYYVYY", 0x020C001E, L::Yuv, 8, "", false, "UYYVYY", M::Full601},
    {"YUV422_8_UYVY", 0x0210001F, L::Yuv, 8, "", false, "UYVY", M::Full601},
    {"YUV422_8", 0x02100032, L::Yuv, 8, "", false, "YUYV", M::Full601},
    {"YUV8_UYV", 0x02180020, L::Yuv, 8, "", false, "UYV", M::Full601},
    {"YCbCr8_CbYCr", 0x0218003A, L::Yuv, 8, "", false, "UYV", M::Full601},
    {"YCbCr422_8", 0x0210003B, L::Yuv, 8, "", false, "YUYV", M::Full601},
    {"YCbCr422_8_CbYCrY", 0x02100043, L::Yuv, 8, "", false, "UYVY", M::Full601},
    {"YCbCr411_8_CbYYCrYY", 0x020C003C, L::Yuv, 8, "", false, "UYYVYY", M::Full601},
    {"YCbCr601_8_CbYCr", 0x0218003D, L::Yuv, 8, "", false, "UYV", M::Studio601},
    {"YCbCr601_422_8", 0x0210003E, L::Yuv, 8, "", false, "YUYV", M::Studio601},
    {"YCbCr601_422_8_CbYCrY", 0x02100044, L::Yuv, 8, "", false, "UYVY", M::Studio601},
    {"YCbCr601_411_8_CbYYCrYY", 0x020C003F, L::Yuv, 8, "", false, "UYYVYY", M::Studio601},
    {"YCbCr709_8_CbYCr", 0x02180040, L::Yuv, 8, "", false, "UYV", M::Studio709},
    {"YCbCr709_422_8", 0x02100041, L::Yuv, 8, "", false, "YUYV", M::Studio709},
    {"YCbCr709_422_8_CbYCrY", 0x02100045, L::Yuv, 8, "", false, "UYVY", M::Studio709},
    {"YCbCr709_411_8_CbYYCrYY", 0x020C0042, L::Yuv, 8, "", false, "UYYVYY", M::Studio709},
    {"Coord3D_ABC8", 0x021800B2, L::Coord3D8, 8},
};
// clang-format on

} // namespace

const PixelFormatInfo* PixelFormats(std::size_t* count) {
    *count = sizeof(kFormats) / sizeof(kFormats[0]);
    return kFormats;
}

const PixelFormatInfo* FindPixelFormat(uint32_t code) {
    for (const PixelFormatInfo& f : kFormats) {
        if (f.code == code)
            return &f;
    }
    return nullptr;
}

} // namespace camsim
