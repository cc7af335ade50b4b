#include <CoreServices/UTCUtils.h>

namespace {

// From the start of 1904 to that of 2001, both in Greenwich.
constexpr CFTimeInterval kFrom1904ToReferenceDate = 3061152000.0;

}  // namespace

OSStatus UCConvertUTCDateTimeToCFAbsoluteTime(UTCDateTime const* iUTCDate,
                                              CFAbsoluteTime* oCFTime) {
  if (iUTCDate == nullptr || oCFTime == nullptr) return paramErr;
  UInt64 const seconds = (UInt64{iUTCDate->highSeconds} << 32) | iUTCDate->lowSeconds;
  *oCFTime = static_cast<double>(seconds) - kFrom1904ToReferenceDate + iUTCDate->fraction / 65536.0;
  return noErr;
}
