// The pixel formats Convert reads, with their GigE Vision (PFNC) codes and names, and the ones
// it refuses by name.
#include "sourceformats.h"
#include "convertrows.h"

#include <cstdio>

namespace korvatin {

namespace {

using P = SourcePacking;
using B = BayerOrder;
using M = YuvMatrix;

// Byte positions inside one group of the YUV / YCbCr layouts.
const YuvLayout kUyv = {1, 3, {1, 0, 0, 0}, 0, 2};
const YuvLayout kYuyv = {2, 4, {0, 2, 0, 0}, 1, 3};
const YuvLayout kUyvy = {2, 4, {1, 3, 0, 0}, 0, 2};
const YuvLayout kUyyvyy = {4, 6, {1, 2, 4, 5}, 0, 3};

// Every format of GigE Vision's pixel-format table that is an image. The YUV formats and the
// YCbCr ones without a standard in their name are full-range BT.601 (JFIF), as PFNC defines the
// latter and as cameras send the former; YCbCr601 and YCbCr709 are studio range with the matrix
// of their standard.
// clang-format off
const SourceFormat kFormats[] = {
    {0x01010037, "Mono1p", P::LsbPacked, 1},
    {0x01020038, "Mono2p", P::LsbPacked, 2},
    {0x01040039, "Mono4p", P::LsbPacked, 4},
    {0x01080001, "Mono8", P::Bits8, 8},
    {0x01080002, "Mono8s", P::Bits8Signed, 8},
    {0x01100003, "Mono10", P::Bits16, 10},
    {0x010a0046, "Mono10p", P::LsbPacked, 10},
    {0x010c0004, "Mono10Packed", P::GevPacked, 10},
    {0x01100005, "Mono12", P::Bits16, 12},
    {0x010c0047, "Mono12p", P::LsbPacked, 12},
    {0x010c0006, "Mono12Packed", P::GevPacked, 12},
    {0x01100025, "Mono14", P::Bits16, 14},
    {0x01100007, "Mono16", P::Bits16, 16},
    {0x01080008, "BayerGR8", P::Bits8, 8, B::GR},
    {0x01080009, "BayerRG8", P::Bits8, 8, B::RG},
    {0x0108000a, "BayerGB8", P::Bits8, 8, B::GB},
    {0x0108000b, "BayerBG8", P::Bits8, 8, B::BG},
    {0x0110000c, "BayerGR10", P::Bits16, 10, B::GR},
    {0x0110000d, "BayerRG10", P::Bits16, 10, B::RG},
    {0x0110000e, "BayerGB10", P::Bits16, 10, B::GB},
    {0x0110000f, "BayerBG10", P::Bits16, 10, B::BG},
    {0x010a0056, "BayerGR10p", P::LsbPacked, 10, B::GR},
    {0x010a0058, "BayerRG10p", P::LsbPacked, 10, B::RG},
    {0x010a0054, "BayerGB10p", P::LsbPacked, 10, B::GB},
    {0x010a0052, "BayerBG10p", P::LsbPacked, 10, B::BG},
    {0x010c0026, "BayerGR10Packed", P::GevPacked, 10, B::GR},
    {0x010c0027, "BayerRG10Packed", P::GevPacked, 10, B::RG},
    {0x010c0028, "BayerGB10Packed", P::GevPacked, 10, B::GB},
    {0x010c0029, "BayerBG10Packed", P::GevPacked, 10, B::BG},
    {0x01100010, "BayerGR12", P::Bits16, 12, B::GR},
    {0x01100011, "BayerRG12", P::Bits16, 12, B::RG},
    {0x01100012, "BayerGB12", P::Bits16, 12, B::GB},
    {0x01100013, "BayerBG12", P::Bits16, 12, B::BG},
    {0x010c0057, "BayerGR12p", P::LsbPacked, 12, B::GR},
    {0x010c0059, "BayerRG12p", P::LsbPacked, 12, B::RG},
    {0x010c0055, "BayerGB12p", P::LsbPacked, 12, B::GB},
    {0x010c0053, "BayerBG12p", P::LsbPacked, 12, B::BG},
    {0x010c002a, "BayerGR12Packed", P::GevPacked, 12, B::GR},
    {0x010c002b, "BayerRG12Packed", P::GevPacked, 12, B::RG},
    {0x010c002c, "BayerGB12Packed", P::GevPacked, 12, B::GB},
    {0x010c002d, "BayerBG12Packed", P::GevPacked, 12, B::BG},
    {0x01100109, "BayerGR14", P::Bits16, 14, B::GR},
    {0x0110010a, "BayerRG14", P::Bits16, 14, B::RG},
    {0x0110010b, "BayerGB14", P::Bits16, 14, B::GB},
    {0x0110010c, "BayerBG14", P::Bits16, 14, B::BG},
    {0x0110002e, "BayerGR16", P::Bits16, 16, B::GR},
    {0x0110002f, "BayerRG16", P::Bits16, 16, B::RG},
    {0x01100030, "BayerGB16", P::Bits16, 16, B::GB},
    {0x01100031, "BayerBG16", P::Bits16, 16, B::BG},
    {0x02180014, "RGB8", P::Rgb8, 8},
    {0x02180015, "BGR8", P::Rgb8, 8, B::None, true},
    {0x02200016, "RGBa8", P::Rgba8, 8},
    {0x02200017, "BGRa8", P::Rgba8, 8, B::None, true},
    {0x02300018, "RGB10", P::Rgb16, 10},
    {0x02300019, "BGR10", P::Rgb16, 10, B::None, true},
    {0x0230001a, "RGB12", P::Rgb16, 12},
    {0x0230001b, "BGR12", P::Rgb16, 12, B::None, true},
    {0x02300033, "RGB16", P::Rgb16, 16},
    {0x0230004b, "BGR16", P::Rgb16, 16, B::None, true},
    {0x0220001c, "RGB10V1Packed", P::Rgb10V1, 10},
    {0x0220001d, "RGB10p32", P::Rgb10p32, 10},
    {0x02240034, "RGB12V1Packed", P::Rgb12V1, 12},
    {0x02100035, "RGB565p", P::Rgb565, 5},
    {0x02100036, "BGR565p", P::Rgb565, 5, B::None, true},
    {0x02180021, "RGB8_Planar", P::Planar8, 8},
    {0x02300022, "RGB10_Planar", P::Planar16, 10},
    {0x02300023, "RGB12_Planar", P::Planar16, 12},
    {0x02300024, "RGB16_Planar", P::Planar16, 16},
    {0x020c001e, "YUV411_8_UYYVYY", P::Yuv8, 8, B::None, false, &kUyyvyy, M::Full601},
    {0x0210001f, "YUV422_8_UYVY", P::Yuv8, 8, B::None, false, &kUyvy, M::Full601},
    {0x02100032, "YUV422_8", P::Yuv8, 8, B::None, false, &kYuyv, M::Full601},
    {0x02180020, "YUV8_UYV", P::Yuv8, 8, B::None, false, &kUyv, M::Full601},
    {0x0218003a, "YCbCr8_CbYCr", P::Yuv8, 8, B::None, false, &kUyv, M::Full601},
    {0x0210003b, "YCbCr422_8", P::Yuv8, 8, B::None, false, &kYuyv, M::Full601},
    {0x02100043, "YCbCr422_8_CbYCrY", P::Yuv8, 8, B::None, false, &kUyvy, M::Full601},
    {0x020c003c, "YCbCr411_8_CbYYCrYY", P::Yuv8, 8, B::None, false, &kUyyvyy, M::Full601},
    {0x0218003d, "YCbCr601_8_CbYCr", P::Yuv8, 8, B::None, false, &kUyv, M::Studio601},
    {0x0210003e, "YCbCr601_422_8", P::Yuv8, 8, B::None, false, &kYuyv, M::Studio601},
    {0x02100044, "YCbCr601_422_8_CbYCrY", P::Yuv8, 8, B::None, false, &kUyvy, M::Studio601},
    {0x020c003f, "YCbCr601_411_8_CbYYCrYY", P::Yuv8, 8, B::None, false, &kUyyvyy, M::Studio601},
    {0x02180040, "YCbCr709_8_CbYCr", P::Yuv8, 8, B::None, false, &kUyv, M::Studio709},
    {0x02100041, "YCbCr709_422_8", P::Yuv8, 8, B::None, false, &kYuyv, M::Studio709},
    {0x02100045, "YCbCr709_422_8_CbYCrY", P::Yuv8, 8, B::None, false, &kUyvy, M::Studio709},
    {0x020c0042, "YCbCr709_411_8_CbYYCrYY", P::Yuv8, 8, B::None, false, &kUyyvyy, M::Studio709},
};
// clang-format on

// Formats of the table that are not images: 3D coordinates (the A, B and C of a point, some as
// floating point), which no grey or colour picture stands for.
struct NamedFormat {
    uint32_t code;
    const char* name;
};
// clang-format off
const NamedFormat kCoordinateFormats[] = {
    {0x021800b2, "Coord3D_ABC8"},
    {0x021800b3, "Coord3D_ABC8_Planar"},
    {0x021e00db, "Coord3D_ABC10p"},
    {0x021e00dc, "Coord3D_ABC10p_Planar"},
    {0x022400de, "Coord3D_ABC12p"},
    {0x022400df, "Coord3D_ABC12p_Planar"},
    {0x023000b9, "Coord3D_ABC16"},
    {0x023000ba, "Coord3D_ABC16_Planar"},
    {0x026000c0, "Coord3D_ABC32f"},
    {0x026000c1, "Coord3D_ABC32f_Planar"},
    {0x021000b4, "Coord3D_AC8"},
    {0x021000b5, "Coord3D_AC8_Planar"},
    {0x021400f0, "Coord3D_AC10p"},
    {0x021400f1, "Coord3D_AC10p_Planar"},
    {0x021800f2, "Coord3D_AC12p"},
    {0x021800f3, "Coord3D_AC12p_Planar"},
    {0x022000bb, "Coord3D_AC16"},
    {0x022000bc, "Coord3D_AC16_Planar"},
    {0x024000c2, "Coord3D_AC32f"},
    {0x024000c3, "Coord3D_AC32f_Planar"},
    {0x010800af, "Coord3D_A8"},
    {0x010a00d5, "Coord3D_A10p"},
    {0x010c00d8, "Coord3D_A12p"},
    {0x011000b6, "Coord3D_A16"},
    {0x012000bd, "Coord3D_A32f"},
    {0x010800b0, "Coord3D_B8"},
    {0x010a00d6, "Coord3D_B10p"},
    {0x010c00d9, "Coord3D_B12p"},
    {0x011000b7, "Coord3D_B16"},
    {0x012000be, "Coord3D_B32f"},
    {0x010800b1, "Coord3D_C8"},
    {0x010a00d7, "Coord3D_C10p"},
    {0x010c00da, "Coord3D_C12p"},
    {0x011000b8, "Coord3D_C16"},
    {0x012000bf, "Coord3D_C32f"},
};
// clang-format on

uint32_t StreamBits(const SourceFormat& format) {
    return (format.code >> 16) & 0xFF;
}

} // namespace

const SourceFormat* SourceFormats(size_t* count) {
    *count = sizeof(kFormats) / sizeof(kFormats[0]);
    return kFormats;
}

const SourceFormat* FindSourceFormat(uint32_t code) {
    for (const SourceFormat& f : kFormats) {
        if (f.code == code)
            return &f;
    }
    return nullptr;
}

bool IsPackedStream(const SourceFormat& format) {
    return format.packing == P::GevPacked || format.packing == P::LsbPacked ||
           format.packing == P::Rgb12V1;
}

size_t LineBytes(const SourceFormat& format, uint32_t width) {
    if (format.packing == P::Planar8 || format.packing == P::Planar16)
        return size_t(width) * (StreamBits(format) / 24);
    return size_t(width) * StreamBits(format) / 8;
}

size_t ImageBytes(const SourceFormat& format, uint32_t width, uint32_t height, size_t stride) {
    if (width == 0 || height == 0)
        return 0;
    if (IsPackedStream(format))
        return (size_t(width) * height * StreamBits(format) + 7) / 8;
    if (format.packing == P::Planar8 || format.packing == P::Planar16)
        return 3 * LineBytes(format, width) * height;
    return stride * (height - 1) + LineBytes(format, width);
}

const char* PixelFormatName(uint32_t code) {
    if (const SourceFormat* format = FindSourceFormat(code))
        return format->name;
    for (const NamedFormat& f : kCoordinateFormats) {
        if (f.code == code)
            return f.name;
    }
    return nullptr;
}

std::string ConversionRefusal(uint32_t code) {
    if (FindSourceFormat(code) != nullptr)
        return std::string();
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%08X", code);
    for (const NamedFormat& f : kCoordinateFormats) {
        if (f.code == code)
            return std::string("pixel format ") + f.name + " (" + hex +
                   ") holds 3D coordinates, not an image: it cannot be shown, recorded or saved";
    }
    return std::string("pixel format ") + hex + " is not one the viewer can convert";
}

} // namespace korvatin
