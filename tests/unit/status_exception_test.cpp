#include "ec_status_exception.h"

#include "grouping_locale.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <type_traits>

namespace
{

constexpr ec_status without_text = static_cast<ec_status>(77);

// The platform's text of a status, as a message carries it.
std::string status_text(ec_status status)
{
    const std::string front = "x: error code: " + std::to_string(status) + ", ";
    const std::string message = EcStatusException(status, "x").what();
    EXPECT_EQ(message.substr(0, front.size()), front);
    return message.substr(front.size());
}

TEST(StatusException, MessageHoldsTextStatusAndTheStatussText)
{
    const EcStatusException exception(EC_INVALID_PARAMETER, "buildBaseName");
    EXPECT_EQ(exception.status, 20);
    EXPECT_EQ(exception.message, "buildBaseName: error code: 20, invalid parameter");
    EXPECT_STREQ(exception.what(), "buildBaseName: error code: 20, invalid parameter");
}

TEST(StatusException, StatusWithoutATextEndsInCommaAndBlank)
{
    EXPECT_STREQ(EcStatusException(without_text, "step").what(), "step: error code: 77, ");
}

TEST(StatusException, SetMsgOnStatus11RebuildsTheMessageAndKeepsTheStatus)
{
    EcStatusException exception(EC_SYSTEM_ERROR, "before");
    exception.setMsg("x");
    EXPECT_STREQ(exception.what(), "x: error code: 11, system call failed");
    EXPECT_EQ(exception.status, EC_SYSTEM_ERROR);
}

TEST(StatusException, SetMsgUsesTheStatusOfTheMoment)
{
    EcStatusException exception(EC_SYSTEM_ERROR, "before");
    exception.status = without_text;
    exception.setMsg("after");
    EXPECT_STREQ(exception.what(), "after: error code: 77, ");
}

TEST(StatusException, BothConstructorsBuildTheSameMessage)
{
    const std::string text = "makeViewFolder";
    EXPECT_EQ(EcStatusException(EC_FOLDER_NOT_CREATED, text).message,
              EcStatusException(EC_FOLDER_NOT_CREATED, text.c_str()).message);
}

TEST(StatusException, NullTextIsEmpty)
{
    const char* const no_text = nullptr;
    EXPECT_STREQ(EcStatusException(without_text, no_text).what(), ": error code: 77, ");
}

TEST(StatusException, EveryStatusOfTheLibraryHasAText)
{
    for (const int status : {0, 1, 10, 11, 12, 13, 14, 20, 25, 29, 35, 36, 103, 142, 158, 223, 226})
        EXPECT_NE(status_text(static_cast<ec_status>(status)), "") << status;
}

TEST(StatusException, AnyOtherIntIsSafeAndHasNoText)
{
    for (const int status : {INT_MIN, -1, 2, 227, 100'000, INT_MAX})
        EXPECT_EQ(status_text(static_cast<ec_status>(status)), "") << status;
}

TEST(StatusException, StatusIsDecimalWhateverTheProcesssLocale)
{
    const GroupingLocale locale;
    EXPECT_STREQ(EcStatusException(static_cast<ec_status>(1234567), "x").what(),
                 "x: error code: 1234567, ");
}

TEST(StatusException, IsCaughtAsAStandardException)
{
    static_assert(std::is_base_of_v<std::exception, EcStatusException>);
    static_assert(std::has_virtual_destructor_v<EcStatusException>);
    try {
        throw EcStatusException(EC_SYSTEM_ERROR, "step");
    } catch (const std::exception& exception) {
        EXPECT_STREQ(exception.what(), "step: error code: 11, system call failed");
    }
}

TEST(StatusException, CopyCarriesStatusAndMessage)
{
    EcStatusException copy(EC_OK, "");
    {
        const EcStatusException original(EC_VIEW_NOT_LOCKED, "createGlobalLockForView");
        copy = original;
    }
    EXPECT_EQ(copy.status, EC_VIEW_NOT_LOCKED);
    EXPECT_STREQ(copy.what(), "createGlobalLockForView: error code: 158, view lock not obtained");
}

} // namespace
