/* A control point on libgssdp that keeps the resources which announce themselves. */
#include <libgssdp/gssdp.h>

static int resources;

static void count(GSSDPResourceBrowser *browser, const char *usn, gpointer locations, gpointer data)
{
    (void)browser;
    (void)usn;
    (void)locations;
    (void)data;
    ++resources;
}

int main(void)
{
    GError *error = NULL;
    GSSDPClient *client = g_initable_new(GSSDP_TYPE_CLIENT, NULL, &error, "interface", "eth0", NULL);
    if (!client) {
        g_printerr("%s\n", error->message);
        return 1;
    }
    GSSDPResourceBrowser *browser = gssdp_resource_browser_new(client, GSSDP_ALL_RESOURCES);
    g_signal_connect(browser, "resource-available", G_CALLBACK(count), NULL);
    gssdp_resource_browser_set_active(browser, TRUE);
    g_main_loop_run(g_main_loop_new(NULL, FALSE));
}
