#ifndef SYSCFGMGRGLOBALS_H
#define SYSCFGMGRGLOBALS_H

#include <QtCore/QString>

namespace kelta
{

struct SysCfgMgrGlobals
{
    enum { SYSINFOTYPE_COUNT = 24 };

    // Names of the device's system-information items, by type number: the keys of the system-constants service.
    static const QString SYSINFOTYPE_STR[SYSINFOTYPE_COUNT];
};

} // namespace kelta

#endif
