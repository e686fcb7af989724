#ifndef REQUIRE_H
#define REQUIRE_H

#include <cstdio>
#include <cstdlib>

// A condition that holds for every input. It is checked in every kind of build; one that does not hold ends the
// process, so that a fuzzer keeps the input.
#define REQUIRE(condition) ((condition) ? void() : requirementFailed(#condition, __FILE__, __LINE__))

[[noreturn]] inline void requirementFailed(const char *condition, const char *file, int line)
{
    std::fprintf(stderr, "%s:%d: not so: %s\n", file, line, condition);
    std::abort();
}

#endif
