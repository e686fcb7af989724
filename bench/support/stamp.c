/* stamp FILE PROGRAM [ARGUMENT...]: writes the monotonic time into the file and becomes the program. */
#include "clocks.h"

#include <stdio.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    FILE *file = argc > 2 ? fopen(argv[1], "w") : NULL;
    if (!file) {
        fprintf(stderr, "usage: %s FILE PROGRAM [ARGUMENT...]\n", argv[0]);
        return 2;
    }
    fprintf(file, "%.9f\n", now());
    fclose(file);
    execvp(argv[2], argv + 2);
    perror(argv[2]);
    return 127;
}
