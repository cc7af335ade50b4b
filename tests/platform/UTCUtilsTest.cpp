#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>

TEST(UTCUtils, GiveTheMomentOfADate) {
  struct {
    UTCDateTime date;
    double at;
  } const cases[] = {{{0, 0, 0}, -3061152000.0},
                     {{0, 2082844800u, 0}, -978307200.0},  // the start of 1970
                     {{0, 3061152000u, 0x8000}, 0.5},
                     {{1, 0, 0}, 1233815296.0},  // 2040-02-06 06:28:16
                     {{0xFFFF, 0xFFFFFFFFu, 0}, 281474976710655.0 - 3061152000.0}};
  for (auto const& [date, at] : cases) {
    CFAbsoluteTime moment = 1;
    EXPECT_EQ(UCConvertUTCDateTimeToCFAbsoluteTime(&date, &moment), noErr);
    EXPECT_EQ(moment, at);
  }
  CFAbsoluteTime moment = 1;
  EXPECT_EQ(UCConvertUTCDateTimeToCFAbsoluteTime(nullptr, &moment), paramErr);
  EXPECT_EQ(UCConvertUTCDateTimeToCFAbsoluteTime(&cases[0].date, nullptr), paramErr);
  EXPECT_EQ(moment, 1);
}
