#pragma once

// The numbers by which the file calls name mounted volumes.

#include <CoreServices/Volumes.h>

// The number of the mounted volume on which the entry at `absolutePath` lies; a symbolic link at
// its end lies where it stands, and not where it leads to. A volume keeps its number, a positive
// one, for the life of the process; another volume never gets it. 0 where the entry or its volume
// cannot be found, or memory or numbers have run out.
FSVolumeRefNum VolumeNumberOf(char const* absolutePath) noexcept;
