// What the functions of ixfs_vmir.h throw: a status and the step that failed.
#ifndef IXFS_EC_STATUS_EXCEPTION_H
#define IXFS_EC_STATUS_EXCEPTION_H

#include "ixfs.h"

#include <exception>
#include <string>

// A status, and a message that names the step that failed.
class IXFS_API EcStatusException : public std::exception
{
public:
    // `text` names what failed; a null text is empty.
    EcStatusException(ec_status status, const char* text);
    EcStatusException(ec_status status, const std::string& text);
    EcStatusException(const EcStatusException&) = default;
    EcStatusException& operator=(const EcStatusException&) = default;
    ~EcStatusException() override;

    // Rebuilds the message: "<text>: error code: <status>, <the status's text>". If the status has
    // no text, nothing follows the last blank.
    void setMsg(const std::string& text);

    // The message; valid until the exception changes or is destroyed.
    const char* what() const noexcept override;

    ec_status status;    // as it was given
    std::string message; // the text that what() points to
};

#endif
