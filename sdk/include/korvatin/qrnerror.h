// Error codes carried by CKorvatinException and returned by the SDK's status-returning calls.
#pragma once

#include <cstdint>

using QRN_ERROR = int32_t;

// The codes follow errno where one fits, so a code reads the same in a log and in a shell.
enum : QRN_ERROR {
    QRN_OK = 0,
    QRN_ERR_NOT_FOUND = 2,       // no such device, feature, entry or file
    QRN_ERR_IO = 5,              // a transfer or a file operation failed
    QRN_ERR_NO_MEMORY = 12,      // memory could not be had
    QRN_ERR_ACCESS = 13,         // the feature is not readable / writable, or control is denied
    QRN_ERR_INVALID = 22,        // bad argument: out of range, wrong type, malformed text or file
    QRN_ERR_RANGE = 34,          // a value outside the feature's minimum..maximum or increment
    QRN_ERR_UNSUPPORTED = 95,    // an operation or format that is not supported
    QRN_ERR_NOT_CONNECTED = 107, // no device is connected
    QRN_ERR_TIMEOUT = 110,       // the device did not answer in time
    QRN_ERR_SESSION = 0x7FFFFFFF // errors raised by the application's camera session
};
