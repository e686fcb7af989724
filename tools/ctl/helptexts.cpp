#include "helptexts.h"

#include "device.h"

#include <QtCore/QString>

static const char whole[]
    = "Usage: upnpvelornctl COMMAND [OPTION...]\n"
      "Asks the daemon on this device, over the system bus: who the device is, and who else is there.\n"
      "\n"
      "  status                      who this device is, how it is reached, what the daemon has done\n"
      "  list [--family F] [--json]  the devices that it has heard of, itself among them\n"
      "  show UUID                   all that one of them says of itself\n"
      "  monitor                     who comes, changes and leaves, until Ctrl-C\n"
      "  check                       is everything here as a healthy device has it? takes up to 11 seconds\n"
      "  announce                    announces this device to the others, now (root)\n"
      "  reconfigure                 reads the network configuration again, and announces the result (root)\n"
      "\n"
      "  --help                      prints this, or with a command what there is to say of it\n"
      "  --version                   prints the version\n"
      "\n"
      "exit status: 0 all right; 1 something is wrong, or nobody is there; 2 the command line is wrong.\n"
      "See upnpvelornctl(1). For a PC there is upnpvelorn-browse(1).";

static const struct
{
    const char *command;
    const char *text;
} texts[] = {
    { "status",
        "Usage: upnpvelornctl status\n"
        "Prints who this device is, how it is reached, since when the daemon runs, how many devices it knows, and what it\n"
        "has served, taken and refused since then." },
    { "list",
        "Usage: upnpvelornctl list [--family FAMILY] [--json]\n"
        "Prints one row for each device that the daemon has heard of within about a minute, this one included.\n"
        "\n"
        "  --family FAMILY  only those of this family, such as " DEVICE_MODEL_NAME "\n"
        "  --json           one JSON object a line, for programs; see upnpvelornctl(1)" },
    { "show",
        "Usage: upnpvelornctl show UUID\n"
        "Prints all that one device says of itself. Its uuid is its serial number, in the second column of \"list\"." },
    { "monitor",
        "Usage: upnpvelornctl monitor\n"
        "Prints the devices that are there, and from then on a line for each that comes, changes and leaves, until it is\n"
        "interrupted. A daemon that is started again is waited for." },
    { "check",
        "Usage: upnpvelornctl check\n"
        "Looks whether everything is as a healthy device has it: bus, daemon, ports, groups, addresses, description, icon,\n"
        "announcement. One line each: \342\234\223, or \342\234\227 with what was seen, what a healthy device shows and what to do. Changes nothing.\n"
        "Status 1 if one thing is wrong." },
    { "announce",
        "Usage: upnpvelornctl announce\n"
        "Has the daemon announce this device to the others at once, as it does every ten seconds. For root." },
    { "reconfigure",
        "Usage: upnpvelornctl reconfigure\n"
        "Has the daemon read the network configuration again, say alive with the result, and announce it. To be called by\n"
        "what configures the network where there is no connman. For root." },
};

const char *helpText(const QString &command)
{
    for (const auto &one : texts) {
        if (command == QLatin1String(one.command))
            return one.text;
    }
    return whole;
}
