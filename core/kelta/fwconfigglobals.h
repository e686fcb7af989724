#ifndef FWCONFIGGLOBALS_H
#define FWCONFIGGLOBALS_H

#include <QtCore/QString>

namespace kelta
{

// Where the device's firmware configuration service is found on the system bus.
// The values are those of cmake/device.cmake and stay the same for the life of the process.
struct FwConfigGlobals
{
    static const QString SERVICE_PATH_NAME; // the service's bus name
    static const QString SYSTEMVARIABLES_PATH; // object of BareboxConfigProxy
    static const QString FW_VERSION_PATH; // object of FwVersionProxy
    static const QString SYSTEMCONSTANTS_PATH; // object of SystemConstantsProxy
    static const QString FW_NETWORK_PATH; // object with the network configuration
    static const QString FW_NETWORK_INTERFACE; // its interface

    // True when a CODESYS run-time system is installed. Looked up at every call.
    static bool hasCodesys();
};

} // namespace kelta

#endif
