#include "syscfgmgrglobals.h"

#include "device.h"

namespace kelta
{

const QString SysCfgMgrGlobals::SYSINFOTYPE_STR[SYSINFOTYPE_COUNT] = {
    QLatin1String("MANUFACTURER"),
    QLatin1String("PRODUCTNAME"),
    QLatin1String(DEVICE_SERIALNUMBER_KEY),
    QLatin1String("PARTNUMBER"),
    QLatin1String("HARDWAREREVISION"),
    QLatin1String("PRODUCTIONDATE"),
    QLatin1String("CALIBRATIONDATE"),
    QLatin1String("MACADDRESS"),
    QLatin1String("BOARDNAME"),
    QLatin1String("BOARDREVISION"),
    QLatin1String("BOOTLOADERVERSION"),
    QLatin1String("KERNELVERSION"),
    QLatin1String("FIRMWAREVERSION"),
    QLatin1String("FPGAVERSION"),
    QLatin1String("CPUTYPE"),
    QLatin1String("CPUCLOCK"),
    QLatin1String("MEMORYSIZE"),
    QLatin1String("FLASHSIZE"),
    QLatin1String("SLOTCOUNT"),
    QLatin1String("CHANNELCOUNT"),
    QLatin1String("OPTIONS"),
    QLatin1String("LICENSE"),
    QLatin1String("ORDERNUMBER"),
    QLatin1String("CUSTOMERTEXT"),
};

} // namespace kelta
