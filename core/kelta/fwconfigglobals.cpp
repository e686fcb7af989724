#include "fwconfigglobals.h"

#include "device.h"

#include <QtCore/QFileInfo>

namespace kelta
{

const QString FwConfigGlobals::SERVICE_PATH_NAME = QLatin1String(DEVICE_CONFIG_SERVICE);
const QString FwConfigGlobals::SYSTEMVARIABLES_PATH = QLatin1String(DEVICE_SYSTEMVARIABLES_PATH);
const QString FwConfigGlobals::FW_VERSION_PATH = QLatin1String(DEVICE_FW_VERSION_PATH);
const QString FwConfigGlobals::SYSTEMCONSTANTS_PATH = QLatin1String(DEVICE_SYSTEMCONSTANTS_PATH);
const QString FwConfigGlobals::FW_NETWORK_PATH = QLatin1String(DEVICE_NETWORK_PATH);
const QString FwConfigGlobals::FW_NETWORK_INTERFACE = QLatin1String(DEVICE_NETWORK_INTERFACE);

bool FwConfigGlobals::hasCodesys()
{
    return QFileInfo(QLatin1String(DEVICE_CODESYS_PROGRAM)).isExecutable();
}

} // namespace kelta
