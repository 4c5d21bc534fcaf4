#include "ec_status_exception.h"

#include "status_text.h"

#include <locale>
#include <sstream>

EcStatusException::EcStatusException(ec_status status_, const char* text)
    : EcStatusException(status_, std::string(text != nullptr ? text : ""))
{
}

EcStatusException::EcStatusException(ec_status status_, const std::string& text) : status(status_)
{
    setMsg(text);
}

EcStatusException::~EcStatusException() = default;

void EcStatusException::setMsg(const std::string& text)
{
    std::ostringstream stream;
    stream.imbue(std::locale::classic()); // no digit grouping, whatever the process's locale
    stream << text << ": error code: " << static_cast<int>(status) << ", ";
    if (const char* const status_text = errmsgstr[status])
        stream << status_text;
    message = stream.str();
}

const char* EcStatusException::what() const noexcept
{
    return message.c_str();
}
