#include "ec_status_exception.h"

#include "status_text.h"

#include <locale>
#include <sstream>

EcStatusException::EcStatusException(ec_status status_, char const* text)
    : EcStatusException(status_, std::string(text != nullptr ? text : ""))
{
}

EcStatusException::EcStatusException(ec_status status_, std::string const& text) : status(status_)
{
    setMsg(text);
}

EcStatusException::~EcStatusException() = default;

void EcStatusException::setMsg(std::string const& text)
{
    std::ostringstream stream;
    stream.imbue(std::locale::classic()); // no digit grouping, whatever the process's locale
    stream << text << ": error code: " << static_cast<int>(status) << ", ";
    if (char const* const status_text = errmsgstr[status])
        stream << status_text;
    message = stream.str();
}

char const* EcStatusException::what() const noexcept
{
    return message.c_str();
}
