#include "commandline.h"

#include "device.h"

#include <cstdio>
#include <cstring>

static const char version[] = "upnpvelorn " DAEMON_VERSION;

static const char help[]
    = "Usage: upnpvelorn [--help | --version]\n"
      "Makes a " DEVICE_MANUFACTURER " " DEVICE_MODEL_NAME " measurement device findable on its network.\n"
      "\n"
      "  --help     prints this and ends\n"
      "  --version  prints the version and ends\n"
      "\n"
      "With anything else on the command line, or nothing, the daemon starts and runs\n"
      "in the foreground. There are no further options. See upnpvelorn(8).";

bool answerCommandLine(int argc, char *const argv[])
{
    // Meant: no message about unknown arguments (test_command_line). Start scripts may have some.
    const bool isVersion = argc == 2 && std::strcmp(argv[1], "--version") == 0;
    const bool isHelp = argc == 2 && std::strcmp(argv[1], "--help") == 0;
    if (isVersion || isHelp)
        std::puts(isVersion ? version : help);
    return isVersion || isHelp;
}
