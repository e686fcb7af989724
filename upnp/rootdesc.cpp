#include "rootdesc.h"

namespace rootdesc
{

QByteArray document(const Values &v)
{
    QByteArray d;
    d.reserve(1536);
    d += "<?xml version=\"1.0\" encoding=\"utf-8\"?>";
    d += "<root xmlns=\"urn:schemas-upnp-org:device-1-0\">";
    d += "<specVersion><major>1</major><minor>0</minor></specVersion>";
    d += "<URLBase>" + v.presentationUrl + "/</URLBase>";
    d += "<device><deviceType>urn:schemas-upnp-org:device:Basic:1</deviceType>";
    d += "<friendlyName>" + v.hostname + "</friendlyName>";
    d += "<manufacturer>" + v.manufacturer + "</manufacturer>";
    d += "<manufacturerURL>" + v.manufacturerUrl + "</manufacturerURL>";
    d += "<modelDescription>" + v.modelDescription + "</modelDescription>";
    d += "<modelName>" + v.modelName + "</modelName>";
    d += "<modelNumber>" + v.modelNumber + "</modelNumber>";
    d += "<modelURL>" + v.modelUrl + "</modelURL>";
    d += "<serialNumber>" + v.serialNumber + "</serialNumber>";
    d += "<UDN>uuid:Upnp-BasicDevice-1_0-" + v.uuid + "</UDN><UPC></UPC>";
    d += "<iconList><icon><mimetype>image/png</mimetype><width>48</width><height>48</height><depth>24</depth>";
    d += "<url>/icons/kelta_icon48.png</url></icon></iconList>";
    d += "<serviceList></serviceList>";
    d += "<presentationURL>" + v.presentationUrl + "/</presentationURL>";
    d += "</device></root>";
    return d;
}

} // namespace rootdesc
