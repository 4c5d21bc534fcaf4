// What the progress line says.
#ifndef IXFS_PREPARE_PROGRESS_H
#define IXFS_PREPARE_PROGRESS_H

#include "phase.h"

#include <string>

// Such as "disk 12 of 40". Asks the system who holds the host's lock.
std::string progress_of(const Phase& phase, const std::string& server, Phase::Time now);

// How long the pause for the configuration lasts at most, in whole seconds; 0 if there is none.
long seconds_of_pause_left(const Phase& phase, Phase::Time now);

#endif
