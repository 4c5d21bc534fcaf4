// Counts what this program and the libraries in it allocate.
#ifndef IXFS_BENCH_ALLOCATIONS_H
#define IXFS_BENCH_ALLOCATIONS_H

// How often this thread has asked for memory.
long allocations();

#endif
