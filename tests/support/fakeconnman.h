#ifndef FAKECONNMAN_H
#define FAKECONNMAN_H

#include <QtCore/QVariant>

// Plays the network manager on the system bus, on a connection of its own: it owns net.connman and sends signals.
class FakeConnman
{
public:
    // The name is owned from here on.
    FakeConnman();
    ~FakeConnman();

    // PropertyChanged of net.connman.Service, the value wrapped in a D-Bus variant.
    void propertyChanged(const char *name, const QVariant &value, const char *path = "/net/connman/service/ethernet");
    // PropertyChanged with whatever arguments.
    void propertyChangedWith(const QVariantList &arguments);

private:
    Q_DISABLE_COPY(FakeConnman)
};

#endif
