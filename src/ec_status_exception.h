// The exception of the instant-recovery path code: a status and the step that it arose in.
#ifndef IXFS_EC_STATUS_EXCEPTION_H
#define IXFS_EC_STATUS_EXCEPTION_H

#include "ixfs.h"

#include <exception>
#include <string>

class IXFS_API EcStatusException : public std::exception
{
public:
    // `text` names what failed; a null text is empty.
    EcStatusException(ec_status status, char const* text);
    EcStatusException(ec_status status, std::string const& text);
    EcStatusException(EcStatusException const&) = default;
    EcStatusException& operator=(EcStatusException const&) = default;
    ~EcStatusException() override;

    // Rebuilds the message: "<text>: error code: <status>, <the status's text>". A status that has
    // no text leaves the end empty.
    void setMsg(std::string const& text);

    // The message; valid until the exception changes or goes.
    char const* what() const noexcept override;

    ec_status status;
    std::string message;
};

#endif
