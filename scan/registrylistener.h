#ifndef REGISTRYLISTENER_H
#define REGISTRYLISTENER_H

class QString;

// Who wants to know which devices come, change and go. Told at once, in the middle of taking in a datagram: what takes long
// is for later. uuids are the names that the devices have in the registry, whatever strangers put into them.
class RegistryListener
{
public:
    virtual ~RegistryListener() { }

    // It will be in the lists, and stay for its expiration.
    virtual void deviceAppeared(const QString &uuid) = 0;
    // It announces something else than before, not the same again, not even with other white space.
    virtual void deviceChanged(const QString &uuid) = 0;
    // It has not been heard for too long, and leaves the lists as soon as the event loop is reached.
    virtual void deviceGone(const QString &uuid) = 0;
};

#endif
