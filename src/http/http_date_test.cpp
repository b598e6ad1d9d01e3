// Unit: the time as HTTP headers carry it.
#include "http/http_date.h"

#include <gtest/gtest.h>

#include <ctime>

namespace kova {
namespace {

TEST(HttpDateTest, HasTheFixedForm) {
  EXPECT_STREQ(HttpDate(784111777).Narrow(), "Sun, 06 Nov 1994 08:49:37 GMT");
  EXPECT_STREQ(HttpDate(0).Narrow(), "Thu, 01 Jan 1970 00:00:00 GMT");
  EXPECT_STREQ(HttpDate(86399).Narrow(), "Thu, 01 Jan 1970 23:59:59 GMT");
  EXPECT_STREQ(HttpDate(951825600).Narrow(), "Tue, 29 Feb 2000 12:00:00 GMT");
  EXPECT_STREQ(HttpDate(4102444800).Narrow(), "Fri, 01 Jan 2100 00:00:00 GMT");
}

TEST(HttpDateTest, AgreesWithTheCLibrary) {
  for (std::time_t time = 1; time < 4000000000; time += 86400 * 11 + 4661) {
    char expected[128];
    std::strftime(expected, sizeof(expected), "%a, %d %b %Y %H:%M:%S GMT",
                  std::gmtime(&time));
    EXPECT_STREQ(HttpDate(time).Narrow(), expected);
  }
}

}  // namespace
}  // namespace kova
