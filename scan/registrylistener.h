#ifndef REGISTRYLISTENER_H
#define REGISTRYLISTENER_H

class QString;

// Is told which devices come, change and go. The functions are called while a datagram is read, deviceGone() in the timer
// event of the scan: they must not take long. uuids are the names that the devices have in the registry, whatever strangers
// put into them.
class RegistryListener
{
public:
    virtual ~RegistryListener() { }

    // It is in the lists from now on, until it has been silent for three times its expiration.
    virtual void deviceAppeared(const QString &uuid) = 0;
    // It announces something else than before, not the same again, not even with other white space.
    virtual void deviceChanged(const QString &uuid) = 0;
    // It has not been heard for too long, and leaves the lists as soon as the event loop is reached.
    virtual void deviceGone(const QString &uuid) = 0;
};

#endif
