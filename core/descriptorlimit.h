#ifndef DESCRIPTORLIMIT_H
#define DESCRIPTORLIMIT_H

// Lowers the limit of open files (the soft RLIMIT_NOFILE, getrlimit(2)) of the process to what Qt's event loop can watch,
// so that the kernel returns no descriptor above that, whatever opens it. To be called before the first one is opened.
// A lower limit stays. Where the limit cannot be lowered there is a warning.
void limitDescriptorsToEventLoop();

#endif
