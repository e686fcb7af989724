#ifndef ALLOCATIONCOUNT_H
#define ALLOCATIONCOUNT_H

#include <cstddef>

// Heap allocations of the calling thread since the program began: every malloc(), new, calloc() and realloc().
// Exact in builds with the address sanitizer too. A program that uses it is linked with allocationcount.cpp.
int allocationCount();

// The largest of them since the last call, in bytes.
std::size_t takeLargestAllocation();

#endif
