#ifndef COMMANDLINE_H
#define COMMANDLINE_H

// Answers --version or --help on standard output. Returns whether it did; then the process has nothing else to do.
// Each counts only as the only argument: with anything else on the command line nothing is printed, and the daemon starts.
bool answerCommandLine(int argc, char *const argv[]);

#endif
