#pragma once

// The locale, by which texts for the user are made.

#include <CoreFoundation/CFBase.h>

typedef struct __CFLocale const* CFLocaleRef;

// The user's locale for dates: the first that is set of the environment variables LC_ALL, LC_TIME
// and LANG. With none, or with "C" or "POSIX", it is that of computers, in which texts are in
// American English. The variables are read once a process. May be called from any thread. Null when
// memory runs out.
CF_INSIDE CFLocaleRef CFLocaleCopyCurrent(void);
