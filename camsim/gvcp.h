// GVCP status codes, shared by the control channel and the registers.
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
