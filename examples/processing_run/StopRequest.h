#pragma once

// The user's wish to stop, as Ctrl-C tells it.

// From now on an interrupt no longer ends the process, it is only noted.
void NoteInterrupts();

// Whether an interrupt has come. Cheap, and from any thread.
bool StopRequested();
