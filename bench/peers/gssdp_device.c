/* A device on libgssdp that announces a root device and answers searches for it. Argument: the URL of its description. */
#include <libgssdp/gssdp.h>

int main(int argc, char **argv)
{
    GError *error = NULL;
    GSSDPClient *client = g_initable_new(GSSDP_TYPE_CLIENT, NULL, &error, "interface", "eth0", NULL);
    if (!client || argc < 2) {
        g_printerr("%s\n", error ? error->message : "the URL is missing");
        return 1;
    }
    GSSDPResourceGroup *group = gssdp_resource_group_new(client);
    gssdp_resource_group_add_resource_simple(group, "upnp:rootdevice",
        "uuid:11112222-3333-4444-5555-666677778888::upnp:rootdevice", argv[1]);
    gssdp_resource_group_set_available(group, TRUE);
    g_main_loop_run(g_main_loop_new(NULL, FALSE));
}
