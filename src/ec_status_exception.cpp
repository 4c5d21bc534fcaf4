#include "ec_status_exception.h"

EcStatusException::EcStatusException(ec_status status_, const char* text)
    : EcStatusException(status_, std::string(text != nullptr ? text : ""))
{
}

EcStatusException::EcStatusException(ec_status status_, const std::string& text) : status(status_)
{
    setMsg(text);
}

EcStatusException::~EcStatusException() = default;

// A status without a text, which a caller may bring along, leaves the end empty.
void EcStatusException::setMsg(const std::string& text)
{
    const char* const status_text = ixfs_status_text(status);
    message = text + ": error code: " + std::to_string(static_cast<int>(status)) + ", " +
              (status_text != nullptr ? status_text : "");
}

const char* EcStatusException::what() const noexcept
{
    return message.c_str();
}
