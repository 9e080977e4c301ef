// The one exception type of the camera SDK: a message and a QRN_ERROR code.
#pragma once

#include "qrnerror.h"

#include <exception>
#include <string>

class CKorvatinException : public std::exception {
public:
    CKorvatinException() = default;
    CKorvatinException(const char* message, QRN_ERROR code);
    CKorvatinException(const std::string& message, QRN_ERROR code);

    const char* what() const noexcept override { return message_.c_str(); }
    QRN_ERROR Code() const noexcept { return code_; }

private:
    std::string message_;
    QRN_ERROR code_ = QRN_OK;
};
