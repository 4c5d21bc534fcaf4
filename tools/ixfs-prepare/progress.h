// What the progress line says.
#ifndef IXFS_PREPARE_PROGRESS_H
#define IXFS_PREPARE_PROGRESS_H

#include "phase.h"

#include <string>

// Such as "disk 12 of 40". Asks the system who holds the host's lock. `finishing`: somebody waits
// for the end.
std::string progress_of(const Phase& phase, const std::string& server, Phase::Time now,
                        bool finishing);

// How many seconds the pauses for the configuration may still take; 0 if there are none.
long seconds_of_pause_left(const Phase& phase, Phase::Time now);

#endif
