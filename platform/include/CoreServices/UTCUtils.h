#pragma once

// Dates of the file system as moments.

#include <CoreFoundation/CFDate.h>
#include <CoreServices/Files.h>

// Gives the moment of a date that FSGetCatalogInfo told, to the 65536th of a second. A date of all
// zero bits is taken as it stands, for the start of 1904: who asks knows whether that is a date.
// paramErr for a null pointer. Any thread may call it.
CF_INSIDE OSStatus UCConvertUTCDateTimeToCFAbsoluteTime(UTCDateTime const* iUTCDate,
                                                        CFAbsoluteTime* oCFTime);
