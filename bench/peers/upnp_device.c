/* A basic device on libupnp. Arguments: the folder with the description, the description's URL. */
#include <stdio.h>
#include <unistd.h>
#include <upnp/upnp.h>
#include <upnp/upnptools.h>

#define HTTP_PORT 49200
#define EXPIRATION 1810

static int ignore(Upnp_EventType type, const void *event, void *cookie)
{
    (void)type;
    (void)event;
    (void)cookie;
    return 0;
}

int main(int argc, char **argv)
{
    UpnpDevice_Handle device;
    int error = UPNP_E_INVALID_PARAM;
    if (argc > 2)
        error = UpnpInit2("eth0", HTTP_PORT);
    if (error == UPNP_E_SUCCESS)
        error = UpnpSetWebServerRootDir(argv[1]);
    if (error == UPNP_E_SUCCESS)
        error = UpnpRegisterRootDevice(argv[2], ignore, NULL, &device);
    if (error == UPNP_E_SUCCESS)
        error = UpnpSendAdvertisement(device, EXPIRATION);
    if (error != UPNP_E_SUCCESS) {
        fprintf(stderr, "libupnp: %s\n", UpnpGetErrorMessage(error));
        return 1;
    }
    for (;;)
        pause();
}
