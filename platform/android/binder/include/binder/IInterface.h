#pragma once
// IInterface and the Bn/Bp templates that every binder interface is built
// from, with the declaration macros of the device's libbinder:
//
//   class IFoo : public IInterface { public: DECLARE_META_INTERFACE(Foo) ... };
//   class BpFoo : public BpInterface<IFoo> { ... };      // client side
//   class BnFoo : public BnInterface<IFoo> { ... };      // server side
//   IMPLEMENT_META_INTERFACE(Foo, "com.example.IFoo")  // in one source file
//
// IFoo::asInterface(binder) returns the local object when `binder` lives in
// this process and implements the descriptor, else a new BpFoo over it, and
// nullptr for a null binder.

#include <binder/Binder.h>

namespace android {

class IInterface : public virtual RefBase {
  public:
    IInterface();
    static sp<IBinder> asBinder(const IInterface* iface);
    static sp<IBinder> asBinder(const sp<IInterface>& iface);

  protected:
    ~IInterface() override;
    virtual IBinder* onAsBinder() = 0;
};

template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& obj) {
    return INTERFACE::asInterface(obj);
}

template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
  public:
    sp<IInterface> queryLocalInterface(const String16& _descriptor) override;
    const String16& getInterfaceDescriptor() const override;

  protected:
    typedef INTERFACE BaseInterface;
    IBinder* onAsBinder() override;
};

template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
  public:
    explicit BpInterface(const sp<IBinder>& remote);

  protected:
    typedef INTERFACE BaseInterface;
    IBinder* onAsBinder() override;
};

#define DECLARE_META_INTERFACE(INTERFACE)                                                         \
  public:                                                                                         \
    static const ::android::String16 descriptor;                                                  \
    static ::android::sp<I##INTERFACE> asInterface(const ::android::sp<::android::IBinder>& obj); \
    virtual const ::android::String16& getInterfaceDescriptor() const;                            \
    I##INTERFACE();                                                                               \
    virtual ~I##INTERFACE();

#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                             \
    const ::android::String16 I##INTERFACE::descriptor(NAME);                 \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const { \
        return I##INTERFACE::descriptor;                                      \
    }                                                                         \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                    \
        const ::android::sp<::android::IBinder>& obj) {                       \
        ::android::sp<I##INTERFACE> intr;                                     \
        if (obj != nullptr) {                                                 \
            intr = static_cast<I##INTERFACE*>(                                \
                obj->queryLocalInterface(I##INTERFACE::descriptor).get());    \
            if (intr == nullptr) {                                            \
                intr = new Bp##INTERFACE(obj);                                \
            }                                                                 \
        }                                                                     \
        return intr;                                                          \
    }                                                                         \
    I##INTERFACE::I##INTERFACE() {}                                           \
    I##INTERFACE::~I##INTERFACE() {}

#define CHECK_INTERFACE(interface, data, reply)  \
    do {                                         \
        if (!(data).checkInterface(this)) {      \
            return ::android::PERMISSION_DENIED; \
        }                                        \
    } while (false)

template <typename INTERFACE>
inline sp<IInterface> BnInterface<INTERFACE>::queryLocalInterface(const String16& _descriptor) {
    if (_descriptor == INTERFACE::descriptor) {
        return this;
    }
    return nullptr;
}

template <typename INTERFACE>
inline const String16& BnInterface<INTERFACE>::getInterfaceDescriptor() const {
    return INTERFACE::getInterfaceDescriptor();
}

template <typename INTERFACE>
IBinder* BnInterface<INTERFACE>::onAsBinder() {
    return this;
}

template <typename INTERFACE>
inline BpInterface<INTERFACE>::BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

template <typename INTERFACE>
inline IBinder* BpInterface<INTERFACE>::onAsBinder() {
    return remote();
}

}  // namespace android
