// The short English names of days and months, as dates for programs have them
// (RFC 9110, 5.6.7, and the C standard's "C" locale).
#pragma once

namespace kova {

// From Sunday on.
inline constexpr char kDayNames[][4] = {"Sun", "Mon", "Tue", "Wed",
                                        "Thu", "Fri", "Sat"};
inline constexpr char kMonthNames[][4] = {"Jan", "Feb", "Mar", "Apr",
                                          "May", "Jun", "Jul", "Aug",
                                          "Sep", "Oct", "Nov", "Dec"};

}  // namespace kova
