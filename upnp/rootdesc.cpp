#include "rootdesc.h"

#include "device.h"

namespace rootdesc
{

QByteArray document(const Values &v)
{
    QByteArray d;
    d.reserve(1536);
    d += "<?xml version=\"1.0\" encoding=\"utf-8\"?>";
    d += "<root xmlns=\"urn:schemas-upnp-org:device-1-0\">";
    d += "<specVersion><major>1</major><minor>0</minor></specVersion>";
    d.append("<URLBase>").append(v.presentationUrl).append("/</URLBase>");
    d += "<device><deviceType>urn:schemas-upnp-org:device:Basic:1</deviceType>";
    d.append("<friendlyName>").append(v.hostname).append("</friendlyName>");
    d.append("<manufacturer>").append(v.manufacturer).append("</manufacturer>");
    d.append("<manufacturerURL>").append(v.manufacturerUrl).append("</manufacturerURL>");
    d.append("<modelDescription>").append(v.modelDescription).append("</modelDescription>");
    d.append("<modelName>").append(v.modelName).append("</modelName>");
    d.append("<modelNumber>").append(v.modelNumber).append("</modelNumber>");
    d.append("<modelURL>").append(v.modelUrl).append("</modelURL>");
    d.append("<serialNumber>").append(v.serialNumber).append("</serialNumber>");
    d.append("<UDN>uuid:Upnp-BasicDevice-1_0-").append(v.uuid).append("</UDN><UPC></UPC>");
    d += "<iconList><icon><mimetype>image/png</mimetype><width>48</width><height>48</height><depth>24</depth>";
    d += "<url>" DEVICE_ICON_PATH "</url></icon></iconList>";
    d += "<serviceList></serviceList>";
    d.append("<presentationURL>").append(v.presentationUrl).append("/</presentationURL>");
    d += "</device></root>";
    return d;
}

} // namespace rootdesc
