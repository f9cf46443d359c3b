// The trace semaphore: a process-shared robust mutex in the control page.
#ifndef KELVO_TRCSEM_H
#define KELVO_TRCSEM_H

#include "trclive.h"

namespace kelvo {

// Prepares the mutex of a control page that nobody else sees yet.
int semInit(Control& control);

// Takes the semaphore; when its holder died, puts the area in order again
// first. 0, or an error number.
int semLock(Live& live);
// The same, giving up with EAGAIN after `seconds`.
int semLockWithin(Live& live, int seconds);
void semUnlock(Live& live);

} // namespace kelvo

#endif
