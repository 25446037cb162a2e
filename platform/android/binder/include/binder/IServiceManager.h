#pragma once
// The service manager: where a process publishes a binder object under a
// name and where any other process finds it.
//
// Host emulation: the service manager is per device root. Publishing a name
// writes a small registry file under <root>/dev/socket/binder/services/<name>
// naming the publishing process's socket and the object; a look-up reads it
// and checks (with a ping) that the process is still there, so a service of a
// process that died is reported absent. A name is 1 to 127 characters
// without '/' and not starting with '.'. Re-publishing a name replaces it.
// Registry entry: "binder-service 1", socket path, node, dump flags, one per line.
// An entry is trusted only when this user (or root) owns it and the registry,
// no one else may write them, neither is a link, and the socket it names is
// a socket of this user directly in the canonical binder directory; any
// other entry reads as absent.
// The service manager reads the device root on every call. Thread-safe.

#include <binder/IInterface.h>
#include <utils/Vector.h>

namespace android {

class IServiceManager : public IInterface {
  public:
    DECLARE_META_INTERFACE(ServiceManager)

    enum {
        DUMP_FLAG_PRIORITY_CRITICAL = 1 << 0,
        DUMP_FLAG_PRIORITY_HIGH = 1 << 1,
        DUMP_FLAG_PRIORITY_NORMAL = 1 << 2,
        DUMP_FLAG_PRIORITY_DEFAULT = 1 << 3,
        DUMP_FLAG_PRIORITY_ALL = DUMP_FLAG_PRIORITY_CRITICAL | DUMP_FLAG_PRIORITY_HIGH |
                                 DUMP_FLAG_PRIORITY_NORMAL | DUMP_FLAG_PRIORITY_DEFAULT,
        DUMP_FLAG_PROTO = 1 << 4,
    };

    // checkService, retried for up to 5 seconds while the name is absent.
    virtual sp<IBinder> getService(const String16& name) const = 0;
    // The service, or nullptr when the name is not published (or its process died).
    virtual sp<IBinder> checkService(const String16& name) const = 0;
    // OK; PERMISSION_DENIED for a bad name or a null service (as the device's
    // service manager refuses them); INVALID_OPERATION for a proxy (only
    // objects of this process can be published on this host).
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false,
                                int dumpsysFlags = DUMP_FLAG_PRIORITY_DEFAULT) = 0;
    // Live services whose dump priority matches `dumpsysFlags`, sorted by name.
    virtual Vector<String16> listServices(int dumpsysFlags = DUMP_FLAG_PRIORITY_ALL) = 0;

    enum {
        GET_SERVICE_TRANSACTION = IBinder::FIRST_CALL_TRANSACTION,
        CHECK_SERVICE_TRANSACTION,
        ADD_SERVICE_TRANSACTION,
        LIST_SERVICES_TRANSACTION,
    };
};

sp<IServiceManager> defaultServiceManager();

template <typename INTERFACE>
status_t getService(const String16& name, sp<INTERFACE>* outService) {
    const sp<IServiceManager> sm = defaultServiceManager();
    if (sm != nullptr) {
        *outService = interface_cast<INTERFACE>(sm->getService(name));
        if ((*outService) != nullptr) {
            return NO_ERROR;
        }
    }
    return NAME_NOT_FOUND;
}

}  // namespace android
