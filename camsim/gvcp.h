// GVCP status codes and big-endian field access, shared by the control channel and the registers.
#pragma once

#include <cstdint>

// Status codes.
constexpr uint16_t kSuccess = 0x0000;
constexpr uint16_t kNotImplemented = 0x8001;
constexpr uint16_t kInvalidParameter = 0x8002;
constexpr uint16_t kInvalidAddress = 0x8003;
constexpr uint16_t kWriteProtect = 0x8004;
constexpr uint16_t kBadAlignment = 0x8005;
constexpr uint16_t kAccessDenied = 0x8006;
constexpr uint16_t kLocalProblem = 0x8008;
constexpr uint16_t kInvalidHeader = 0x800E;

// Packet fields are big-endian, as the registers are.
inline uint16_t get16(const uint8_t* p) {
    return uint16_t(p[0] << 8 | p[1]);
}

inline uint32_t get32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

inline void put16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v >> 8);
    p[1] = uint8_t(v);
}

inline void put32(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v >> 24);
    p[1] = uint8_t(v >> 16);
    p[2] = uint8_t(v >> 8);
    p[3] = uint8_t(v);
}
