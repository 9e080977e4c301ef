// The SDK's exception: carries a message and a QRN_ERROR code.
#include "korvatin/korvatinexception.h"

#include <utility>

CKorvatinException::CKorvatinException(const char* message, QRN_ERROR code)
    : message_(message != nullptr ? message : ""), code_(code) {}

CKorvatinException::CKorvatinException(const std::string& message, QRN_ERROR code)
    : message_(message), code_(code) {}
