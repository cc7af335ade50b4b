#pragma once

// The statuses that the file calls report; 0 is success.

enum {
  noErr = 0,
  dskFulErr = -34,          // no space, no quota, or over the size that the process may write
  nsvErr = -35,             // no such volume
  ioErr = -36,              // the device failed, or any failure without a status of its own
  bdNamErr = -37,           // a name or path that no entry can have, or one that is too long
  fnOpnErr = -38,           // the descriptor is not open
  eofErr = -39,             // the end of the fork was met
  posErr = -40,             // a position before the start
  tmfoErr = -42,            // too many open files
  fnfErr = -43,             // no such entry
  wPrErr = -44,             // the volume is read-only
  fBsyErr = -47,            // the entry is in use, or a directory is not empty
  dupFNErr = -48,           // an entry of that name exists
  opWrErr = -49,            // the entry cannot be opened that way: a directory, FIFO or socket
  paramErr = -50,           // an argument that cannot be used
  rfNumErr = -51,           // not the number of an open fork
  permErr = -54,            // the system's permissions refuse
  memFullErr = -108,        // out of memory
  dirNFErr = -120,          // a directory on the way does not exist
  userCanceledErr = -128,   // it was told to stop
  errFSNoMoreItems = -1417  // the directory has no further entries
};
