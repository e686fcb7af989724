/* A basic device on libgupnp (libgssdp and libsoup). Arguments: a folder, the name of the description in it. */
#include <libgupnp/gupnp.h>

int main(int argc, char **argv)
{
    GError *error = NULL;
    GUPnPRootDevice *device = NULL;
    GUPnPContext *context = g_initable_new(GUPNP_TYPE_CONTEXT, NULL, &error, "interface", "eth0", "port", 8200, NULL);
    if (context && argc > 2)
        device = gupnp_root_device_new(context, argv[2], argv[1], &error);
    if (!device) {
        g_printerr("%s\n", error ? error->message : "folder and name are missing");
        return 1;
    }
    gupnp_root_device_set_available(device, TRUE);
    g_main_loop_run(g_main_loop_new(NULL, FALSE));
}
