#pragma once

// Time zones: what has to be added to the time in Greenwich at each moment.
//
// Zones are immutable and may be shared between threads. They are used with the fields of
// <CoreFoundation/CFDate.h>.

#include <CoreFoundation/CFDate.h>

// The zone that the user is in, now. It is the one that the environment variable TZ names (a zone
// of the system's database, or a rule by POSIX such as "CET-1CEST,M3.5.0,M10.5.0/3"), else the one
// of /etc/localtime, else Greenwich, also where TZ makes no sense. A change of TZ shows at the next
// call, one of /etc/localtime after a second at most; objects handed out before stay what they are.
// Null when memory runs out. May be called from any thread, but not while another one sets
// environment variables, as everywhere in a process.
//
// Offsets are the database's to the second: before its first entry local mean time, after its last
// one the zone's rule for ever. A rule in TZ holds from 1916 on, and standard time before. Where
// the rule counts winter as the exception, with a negative saving of daylight (Ireland's, which
// begins in 2038 where the entries end), GLib puts its winters two hours ahead.
CF_EXPORT CFTimeZoneRef CFTimeZoneCopySystem(void);

// A zone that is always `interval` seconds east of Greenwich, less than 0 to the west; a fraction
// is cut off. Null for more than 18 hours either way, for what is not a number, and when memory
// runs out.
CF_EXPORT CFTimeZoneRef CFTimeZoneCreateWithTimeIntervalFromGMT(CFAllocatorRef allocator,
                                                                CFTimeInterval interval);
