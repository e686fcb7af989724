#ifndef COMMANDS_H
#define COMMANDS_H

struct Options;

// Each does what the command of its name is for, and returns the status to end with: 0, or 1 when something is wrong, which has
// been said.
int showStatus();
int listNeighbours(const Options &options);
int showNeighbour(const Options &options);
int monitorNeighbours();
int checkDevice();
int announce();
int reconfigure();

#endif
