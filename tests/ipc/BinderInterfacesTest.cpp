// The two interfaces in one process: proxies over a capturing binder show the
// exact bytes they send; the stubs are driven through BBinder::transact with
// hand-made parcels. The statuses a service answers with are in
// IpcProcessTest.
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>
#include <utils/Errors.h>

#include <atomic>
#include <string>

#include "ParcelBytes.h"
#include "ipc/BnFlgrCallback.h"
#include "ipc/BpFlgrCallback.h"
#include "ipc/BpFlgrService.h"
#include "ipc/NativeService.h"

namespace {

using android::Parcel;
using android::sp;
using android::binder::Status;
using vemo::ipc::BpFlgrCallback;
using vemo::ipc::BpFlgrService;
using vemo::ipc::IFlgrService;
using vemo::ipc::PFactRequest;
using vemo::ipc::PFlgrRequest;
using vemo::ipc::PFlgrResponse;
using vemo::test::setWireWords;
using vemo::test::wireWords;

const std::string kServiceToken =
    "00004000 15000000 76006500 6d006f00 2e006900 70006300 2e004900 46006c00 67007200 53006500 "
    "72007600 69006300 65000000";
const std::string kCallbackToken =
    "00004000 16000000 76006500 6d006f00 2e006900 70006300 2e004900 46006c00 67007200 43006100 "
    "6c006c00 62006100 63006b00 00000000";
// "vemo.ipc.IFlgrServicf": one unit off.
const std::string kWrongToken = kServiceToken.substr(0, kServiceToken.size() - 8) + "66000000";
const std::string kNullBinder = "852a6273 13010000 00000000 00000000 00000000 00000000";
const std::string kStatusOk = "00000000";
const std::string kNullPointer = "fcffffff 00000000 00000000 00000000";
const std::string kFactRequest = "01000000 63000000 70000000 6d000000";  // "c", "p", "m"
const std::string kFlgrRequest = "01000000 636c0000 00000000";           // "cl", no params

// Records what a proxy sends as "code/flags: words" and answers with fixed
// reply bytes and result.
class CapturingBinder : public android::BBinder {
  public:
    CapturingBinder(std::string replyWords, android::status_t result)
        : replyWords_(std::move(replyWords)), result_(result) {}
    android::status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                 uint32_t flags) override {
        sent_ = std::to_string(code) + "/" + std::to_string(flags) + ": " + wireWords(data);
        setWireWords(reply, replyWords_);
        return result_;
    }
    std::string sent_;

  private:
    const std::string replyWords_;
    const android::status_t result_;
};

class CountingCallback : public vemo::ipc::BnFlgrCallback {
  public:
    Status onResults(const PFlgrResponse& /*response*/) override {
        ++calls_;
        return Status::ok();
    }
    std::atomic<int> calls_{0};
};

// A 64-bit little-endian field as two wire words.
std::string addressWords(const void* address) {
    Parcel parcel;
    parcel.writeUint64(reinterpret_cast<uintptr_t>(address));
    return wireWords(parcel);
}

TEST(BinderProxyTest, ProxiesSendCodeTokenRecordAndCallbackTwoWay) {
    const sp<CapturingBinder> remote = new CapturingBinder(kStatusOk, android::OK);
    const sp<BpFlgrService> service = new BpFlgrService(remote);
    EXPECT_TRUE(service->factRequest(PFactRequest("c", "p", "m")).isOk());
    EXPECT_EQ(remote->sent_, "2/0: " + kServiceToken + " " + kFactRequest);

    // The parameters as their compact JSON:
    // {"flgrFilePath":"f","applicationId":"a","metadata":"m","scaleValue":0.5}
    const auto params = std::make_shared<vemo::ipc::FlgrFileRequest>("f", "a", "m", 0.5f);
    EXPECT_TRUE(service->flgrRequest(PFlgrRequest("cl", params), nullptr).isOk());
    EXPECT_EQ(remote->sent_,
              "1/0: " + kServiceToken +
                  " 01000000 636c0000 7b22666c 67724669 6c655061 7468223a 2266222c 22617070 "
                  "6c696361 74696f6e 4964223a 2261222c 226d6574 61646174 61223a22 6d222c22 "
                  "7363616c 6556616c 7565223a 302e357d 00000000 " +
                  kNullBinder);
    const sp<CountingCallback> callback = new CountingCallback();
    EXPECT_TRUE(service->flgrRequest(PFlgrRequest("cl", nullptr), callback).isOk());
    // A local object: type BINDER, nice 19 with ACCEPTS_FDS, its weak
    // references' address, then its own address.
    EXPECT_EQ(remote->sent_, "1/0: " + kServiceToken + " " + kFlgrRequest + " 852a6273 13010000 " +
                                 addressWords(callback->localBinder()->getWeakRefs()) + " " +
                                 addressWords(callback->localBinder()));

    EXPECT_TRUE(sp<BpFlgrCallback>(new BpFlgrCallback(remote))->onResults(PFlgrResponse()).isOk());
    EXPECT_EQ(remote->sent_, "1/0: " + kCallbackToken + " 01000000");
}

TEST(BinderProxyTest, EveryProxyReadsTheReplyStatusOrTheTransportFailure) {
    // Service-specific 121 "ServerNotReady".
    const std::string serverNotReady =
        "f8ffffff 0e000000 53006500 72007600 65007200 4e006f00 74005200 65006100 64007900 "
        "00000000 00000000 79000000";
    const struct {
        std::string reply;
        android::status_t result;
        int32_t exception;
        int32_t serviceCode;
        android::status_t transactionError;
        const char* message;
    } cases[] = {{serverNotReady, android::OK, Status::EX_SERVICE_SPECIFIC, 121, android::OK,
                  "ServerNotReady"},
                 {"", android::BAD_TYPE, Status::EX_TRANSACTION_FAILED, 0, android::BAD_TYPE, ""},
                 {"", android::OK, Status::EX_TRANSACTION_FAILED, 0, android::NOT_ENOUGH_DATA, ""}};
    for (const auto& c : cases) {
        const sp<CapturingBinder> remote = new CapturingBinder(c.reply, c.result);
        const sp<BpFlgrService> service = new BpFlgrService(remote);
        const Status statuses[] = {
            service->factRequest(PFactRequest("c", "p", "m")),
            service->flgrRequest(PFlgrRequest("c", nullptr), new CountingCallback()),
            sp<BpFlgrCallback>(new BpFlgrCallback(remote))->onResults(PFlgrResponse())};
        for (const Status& status : statuses) {
            SCOPED_TRACE(status.toString8().string());
            EXPECT_EQ(status.exceptionCode(), c.exception);
            EXPECT_EQ(status.serviceSpecificErrorCode(), c.serviceCode);
            EXPECT_EQ(status.transactionError(), c.transactionError);
            EXPECT_STREQ(status.exceptionMessage().string(), c.message);
        }
    }
}

// Wrong tokens, records that are absent, end early or lack their callback,
// an unknown code; the interface query is left to the default handling.
TEST(BinderStubTest, StubsRefuseBadParcelsAndDeliverOnlyWellFormedCalls) {
    // No connector: a request that got through would be answered ServerNotReady.
    const sp<vemo::ipc::NativeService> service = new vemo::ipc::NativeService(nullptr);
    const sp<CountingCallback> callback = new CountingCallback();
    const uint32_t onResults = vemo::ipc::IFlgrCallback::ON_RESULTS;
    const struct {
        android::BBinder* stub;
        uint32_t code;
        std::string words;
        android::status_t result;
        std::string reply;
    } cases[] = {
        {service.get(), IFlgrService::FLGR_REQUEST,
         kWrongToken + " " + kFlgrRequest + " " + kNullBinder, android::BAD_TYPE, ""},
        {service.get(), IFlgrService::FACT_REQUEST, kCallbackToken + " " + kFactRequest,
         android::BAD_TYPE, ""},
        {service.get(), IFlgrService::FLGR_REQUEST, kServiceToken + " " + kFlgrRequest,
         android::BAD_TYPE, ""},
        {service.get(), IFlgrService::FLGR_REQUEST, kServiceToken + " 01000000 636c0000",
         android::BAD_VALUE, ""},
        {service.get(), IFlgrService::FACT_REQUEST, kServiceToken + " 01000000 63000000 70000000",
         android::BAD_VALUE, ""},
        {service.get(), IFlgrService::FACT_REQUEST, kServiceToken + " 00000000", android::OK,
         kNullPointer},
        {service.get(), IFlgrService::FLGR_REQUEST, kServiceToken + " 00000000 " + kNullBinder,
         android::OK, kNullPointer},
        {service.get(), 3, kServiceToken + " " + kFactRequest, android::UNKNOWN_TRANSACTION, ""},
        {service.get(), android::IBinder::INTERFACE_TRANSACTION, "", android::OK,
         kServiceToken.substr(9)},  // the descriptor without the strict-mode word
        {callback.get(), onResults, kServiceToken + " 01000000", android::BAD_TYPE, ""},
        {callback.get(), onResults, kCallbackToken + " 00000000", android::OK, kNullPointer},
        {callback.get(), onResults, kCallbackToken + " 01000000", android::OK, kStatusOk},
    };
    for (const auto& c : cases) {
        Parcel data;
        Parcel reply;
        setWireWords(&data, c.words);
        EXPECT_EQ(c.stub->transact(c.code, data, &reply), c.result) << c.words;
        EXPECT_EQ(wireWords(reply), c.reply) << c.words;
    }
    EXPECT_EQ(callback->calls_, 1);  // the last case only

    EXPECT_EQ(IFlgrService::asInterface(service), service);  // the local object itself
    EXPECT_EQ(IFlgrService::asInterface(nullptr), nullptr);
}

}  // namespace
