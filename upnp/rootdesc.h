#ifndef ROOTDESC_H
#define ROOTDESC_H

#include <QtCore/QByteArray>

// The description document of a UPnP basic device without services (UPnP Device Architecture 1.0, section 2.1).
namespace rootdesc
{

// 8-bit texts, copied into the document as they are: nothing is escaped.
struct Values
{
    QByteArray presentationUrl; // without the slash that the document adds
    QByteArray hostname;
    QByteArray manufacturer;
    QByteArray manufacturerUrl;
    QByteArray modelDescription;
    QByteArray modelName;
    QByteArray modelNumber;
    QByteArray modelUrl;
    QByteArray serialNumber;
    QByteArray uuid; // without any prefix
};

// 8-bit text in one line without a line end. An empty value leaves its element empty; no element is ever left out.
QByteArray document(const Values &values);

} // namespace rootdesc

#endif
