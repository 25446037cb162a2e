// The two interfaces in one process: proxies over a capturing binder show the
// exact bytes they send; the service and callback stubs are driven through
// BBinder::transact with hand-made parcels.
#include <android/log.h>
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>
#include <utils/Errors.h>
#include <utils/String8.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "ParcelBytes.h"
#include "RecordingConnector.h"
#include "hostlog/LogCapture.h"
#include "ipc/BnFlgrCallback.h"
#include "ipc/BpFlgrCallback.h"
#include "ipc/BpFlgrService.h"
#include "ipc/NativeService.h"

namespace {

using namespace std::chrono_literals;
using android::Parcel;
using android::sp;
using android::binder::Status;
using vemo::ipc::BpFlgrCallback;
using vemo::ipc::BpFlgrService;
using vemo::ipc::FlgrFileRequest;
using vemo::ipc::IFlgrService;
using vemo::ipc::NativeService;
using vemo::ipc::PFactRequest;
using vemo::ipc::PFlgrRequest;
using vemo::ipc::PFlgrResponse;
using vemo::test::RecordingConnector;
using vemo::test::setWireWords;
using vemo::test::wireBytes;
using vemo::test::wireWords;

const std::string kServiceToken =
    "00004000 15000000 76006500 6d006f00 2e006900 70006300 2e004900 46006c00 67007200 53006500 "
    "72007600 69006300 65000000";
const std::string kCallbackToken =
    "00004000 16000000 76006500 6d006f00 2e006900 70006300 2e004900 46006c00 67007200 43006100 "
    "6c006c00 62006100 63006b00 00000000";
const std::string kNullBinder = "852a6273 13010000 00000000 00000000 00000000 00000000";
const std::string kStatusOk = "00000000";
const std::string kServerNotReady =
    "f8ffffff 0e000000 53006500 72007600 65007200 4e006f00 74005200 65006100 64007900 00000000 "
    "00000000 79000000";
const std::string kUnknownError3 =
    "f8ffffff 0c000000 55006e00 6b006e00 6f007700 6e004500 72007200 6f007200 00000000 00000000 "
    "03000000";
const std::string kInvalidRequest =
    "f8ffffff 0e000000 49006e00 76006100 6c006900 64005200 65007100 75006500 73007400 00000000 "
    "00000000 7a000000";
const std::string kNullPointer = "fcffffff 00000000 00000000 00000000";
// flag, "cl", {"flgrFilePath":"f","applicationId":"a","metadata":"m","scaleValue":0.5}
const std::string kFlgrRequest =
    "01000000 636c0000 7b22666c 67724669 6c655061 7468223a 2266222c 22617070 6c696361 74696f6e "
    "4964223a 2261222c 226d6574 61646174 61223a22 6d222c22 7363616c 6556616c 7565223a 302e357d "
    "00000000";
const std::string kFactRequest = "01000000 63000000 70000000 6d000000";  // "c", "p", "m"

// Records what a proxy sends and answers with fixed reply bytes or status.
class CapturingBinder : public android::BBinder {
  public:
    CapturingBinder(std::string replyWords, android::status_t result)
        : replyWords_(std::move(replyWords)), result_(result) {}
    android::status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                 uint32_t flags) override {
        code_ = code;
        flags_ = flags;
        data_ = wireWords(data);
        const auto bytes = wireBytes(replyWords_);
        reply->write(bytes.data(), bytes.size());
        return result_;
    }
    uint32_t code_ = 0;
    uint32_t flags_ = 0xffffffff;
    std::string data_;

  private:
    const std::string replyWords_;
    const android::status_t result_;
};

class RecordingCallback : public vemo::ipc::BnFlgrCallback {
  public:
    explicit RecordingCallback(Status answer = Status::ok()) : answer_(answer) {}
    Status onResults(const PFlgrResponse& response) override {
        status_ = response.getResponse() ? response.getResponse()->getStatus() : -1;
        thread_ = std::this_thread::get_id();
        calls_++;
        return answer_;
    }
    std::atomic<int> calls_{0};
    std::atomic<int> status_{-1};
    std::thread::id thread_;

  private:
    const Status answer_;
};

// A 64-bit little-endian field as two wire words.
std::string addressWords(uint64_t value) {
    Parcel parcel;
    parcel.writeUint64(value);
    return wireWords(parcel);
}

std::shared_ptr<FlgrFileRequest> sampleParams() {
    return std::make_shared<FlgrFileRequest>("f", "a", "m", 0.5f);
}

TEST(BinderProxyTest, FactRequestSendsTokenAndRecord) {
    const sp<CapturingBinder> remote = new CapturingBinder(kStatusOk, android::OK);
    const sp<BpFlgrService> proxy = new BpFlgrService(remote);
    EXPECT_TRUE(proxy->factRequest(PFactRequest("c", "p", "m")).isOk());
    EXPECT_EQ(remote->code_, 2u);
    EXPECT_EQ(remote->flags_, 0u);
    EXPECT_EQ(remote->data_, kServiceToken + " " + kFactRequest);
}

TEST(BinderProxyTest, FlgrRequestSendsTokenRecordAndCallback) {
    const sp<CapturingBinder> remote = new CapturingBinder(kStatusOk, android::OK);
    const sp<BpFlgrService> proxy = new BpFlgrService(remote);
    EXPECT_TRUE(proxy->flgrRequest(PFlgrRequest("cl", sampleParams()), nullptr).isOk());
    EXPECT_EQ(remote->code_, 1u);
    EXPECT_EQ(remote->data_, kServiceToken + " " + kFlgrRequest + " " + kNullBinder);

    const sp<RecordingCallback> callback = new RecordingCallback();
    EXPECT_TRUE(proxy->flgrRequest(PFlgrRequest("cl", sampleParams()), callback).isOk());
    // A local object: type BINDER, nice 19 with ACCEPTS_FDS, its weak
    // references' address, then its own address.
    const std::string object =
        "852a6273 13010000 " +
        addressWords(reinterpret_cast<uintptr_t>(callback->localBinder()->getWeakRefs())) + " " +
        addressWords(reinterpret_cast<uintptr_t>(callback->localBinder()));
    EXPECT_EQ(remote->data_, kServiceToken + " " + kFlgrRequest + " " + object);
}

TEST(BinderProxyTest, OnResultsSendsTokenAndPresenceFlagOnlyTwoWay) {
    const sp<CapturingBinder> remote = new CapturingBinder(kStatusOk, android::OK);
    const sp<BpFlgrCallback> proxy = new BpFlgrCallback(remote);
    EXPECT_TRUE(proxy->onResults(PFlgrResponse(nullptr)).isOk());
    EXPECT_EQ(remote->code_, 1u);
    EXPECT_EQ(remote->flags_ & android::IBinder::FLAG_ONEWAY, 0u);
    EXPECT_EQ(remote->data_, kCallbackToken + " 01000000");
}

struct ReplyCase {
    const char* name;
    std::string reply;
    android::status_t result;
    int32_t exception;
    int32_t serviceCode;
    android::status_t transactionError;
    const char* message;
};

class BinderProxyReplyTest : public ::testing::TestWithParam<ReplyCase> {};

TEST_P(BinderProxyReplyTest, BothProxiesReadTheReplyStatus) {
    const ReplyCase& c = GetParam();
    const sp<CapturingBinder> remote = new CapturingBinder(c.reply, c.result);
    const Status statuses[] = {
        sp<BpFlgrService>(new BpFlgrService(remote))->factRequest(PFactRequest("c", "p", "m")),
        sp<BpFlgrService>(new BpFlgrService(remote))
            ->flgrRequest(PFlgrRequest("c", sampleParams()), new RecordingCallback()),
        sp<BpFlgrCallback>(new BpFlgrCallback(remote))->onResults(PFlgrResponse(nullptr))};
    for (const Status& status : statuses) {
        EXPECT_EQ(status.exceptionCode(), c.exception);
        EXPECT_EQ(status.serviceSpecificErrorCode(), c.serviceCode);
        EXPECT_EQ(status.transactionError(), c.transactionError);
        EXPECT_STREQ(status.exceptionMessage().string(), c.message);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, BinderProxyReplyTest,
    ::testing::Values(ReplyCase{"Ok", kStatusOk, android::OK, Status::EX_NONE, 0, android::OK, ""},
                      ReplyCase{"ServerNotReady", kServerNotReady, android::OK,
                                Status::EX_SERVICE_SPECIFIC, 121, android::OK, "ServerNotReady"},
                      ReplyCase{"NullPointer", kNullPointer, android::OK, Status::EX_NULL_POINTER,
                                0, android::OK, ""},
                      ReplyCase{"TransportError", "", android::BAD_TYPE,
                                Status::EX_TRANSACTION_FAILED, 0, android::BAD_TYPE, ""},
                      ReplyCase{"EmptyReply", "", android::OK, Status::EX_TRANSACTION_FAILED, 0,
                                android::NOT_ENOUGH_DATA, ""}),
    [](const ::testing::TestParamInfo<ReplyCase>& info) { return std::string(info.param.name); });

// The service stub and NativeService, driven with raw transactions.
class NativeServiceTest : public ::testing::Test {
  protected:
    android::status_t transact(uint32_t code, const std::string& words) {
        Parcel data;
        setWireWords(&data, words);
        reply_.freeData();
        return service_->transact(code, data, &reply_);
    }
    // A flgrRequest parcel carrying a local callback object.
    android::status_t transactFlgr(const std::string& recordWords,
                                   const sp<android::IBinder>& callback) {
        Parcel data;
        setWireWords(&data, kServiceToken + " " + recordWords);
        data.setDataPosition(data.dataSize());
        data.writeStrongBinder(callback);
        reply_.freeData();
        return service_->transact(IFlgrService::FLGR_REQUEST, data, &reply_);
    }
    std::vector<std::string> hostErrors() const {
        std::vector<std::string> lines;
        for (const auto& entry : log_.entries()) {
            if (entry.tag == "Vemo:FlgrBinderHost" && entry.priority == ANDROID_LOG_ERROR) {
                lines.push_back(entry.message);
            }
        }
        return lines;
    }
    void useConnector(std::shared_ptr<RecordingConnector> connector) {
        connector_ = connector;
        service_ = new NativeService(std::move(connector));
    }

    hostlog::LogCapture log_;
    std::shared_ptr<RecordingConnector> connector_ = std::make_shared<RecordingConnector>();
    sp<NativeService> service_ = new NativeService(connector_);
    Parcel reply_;
};

TEST_F(NativeServiceTest, FactRequestReachesTheConnector) {
    ASSERT_EQ(transact(IFlgrService::FACT_REQUEST, kServiceToken + " " + kFactRequest),
              android::OK);
    EXPECT_EQ(wireWords(reply_), kStatusOk);
    const auto calls = connector_->factCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].client, "c");
    EXPECT_EQ(calls[0].dataProducer, "p");
    EXPECT_EQ(calls[0].message, "m");
    EXPECT_TRUE(hostErrors().empty());
}

TEST_F(NativeServiceTest, FlgrRequestAcceptsThenCompletesOnAnotherThread) {
    const sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_EQ(transactFlgr(kFlgrRequest, callback), android::OK);
    EXPECT_EQ(wireWords(reply_), kStatusOk);
    const auto calls = connector_->flgrCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].client, "cl");
    EXPECT_EQ(calls[0].filePath, "f");
    EXPECT_EQ(calls[0].applicationId, "a");
    EXPECT_EQ(calls[0].metadata, "m");
    EXPECT_EQ(calls[0].scaleValue, 0.5f);
    ASSERT_TRUE(connector_->waitForCompletions(1, 10s));
    EXPECT_EQ(callback->calls_, 1);
    EXPECT_EQ(callback->status_, 0);
    EXPECT_NE(callback->thread_, std::this_thread::get_id());
}

TEST_F(NativeServiceTest, NoConnectorAnswersServerNotReady) {
    useConnector(nullptr);
    const sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_EQ(transact(IFlgrService::FACT_REQUEST, kServiceToken + " " + kFactRequest),
              android::OK);
    EXPECT_EQ(wireWords(reply_), kServerNotReady);
    ASSERT_EQ(transactFlgr(kFlgrRequest, callback), android::OK);
    EXPECT_EQ(wireWords(reply_), kServerNotReady);
    EXPECT_EQ(hostErrors(), (std::vector<std::string>{"factRequest:ServiceDelegateIsNull",
                                                      "flgrRequest:ServiceDelegateIsNull"}));
}

TEST_F(NativeServiceTest, ConnectorStatusBecomesServiceSpecificUnknownError) {
    useConnector(std::make_shared<RecordingConnector>(3));
    const sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_EQ(transact(IFlgrService::FACT_REQUEST, kServiceToken + " " + kFactRequest),
              android::OK);
    EXPECT_EQ(wireWords(reply_), kUnknownError3);
    ASSERT_EQ(transactFlgr(kFlgrRequest, callback), android::OK);
    EXPECT_EQ(wireWords(reply_), kUnknownError3);
    EXPECT_EQ(hostErrors(), (std::vector<std::string>{"factRequest:ServiceDelegateError, code=3",
                                                      "flgrRequest:ServiceDelegateError, code=3"}));
    EXPECT_EQ(connector_->flgrCalls().size(), 1u);
    EXPECT_EQ(callback->calls_, 0);
}

TEST_F(NativeServiceTest, UnreadableRequestJsonIsRefusedBeforeTheConnector) {
    const sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_EQ(transactFlgr("01000000 636c0000 7b000000", callback), android::OK);  // "{"
    EXPECT_EQ(wireWords(reply_), kInvalidRequest);
    EXPECT_TRUE(connector_->flgrCalls().empty());
    EXPECT_EQ(hostErrors(), std::vector<std::string>{"flgrRequest:InvalidRequest, code=122"});
}

// Transactions refused by the stub: nothing reaches the connector.
struct RefusedCase {
    const char* name;
    uint32_t code;
    std::string words;
    android::status_t result;
    std::string reply;
};

class NativeServiceRefusalTest : public NativeServiceTest,
                                 public ::testing::WithParamInterface<RefusedCase> {};

TEST_P(NativeServiceRefusalTest, RefusesWithoutCallingTheConnector) {
    EXPECT_EQ(transact(GetParam().code, GetParam().words), GetParam().result);
    EXPECT_EQ(wireWords(reply_), GetParam().reply);
    EXPECT_TRUE(connector_->factCalls().empty());
    EXPECT_TRUE(connector_->flgrCalls().empty());
}

// "vemo.ipc.IFlgrServicf": one unit off.
const std::string kWrongToken =
    "00004000 15000000 76006500 6d006f00 2e006900 70006300 2e004900 46006c00 67007200 53006500 "
    "72007600 69006300 66000000";

INSTANTIATE_TEST_SUITE_P(
    Table, NativeServiceRefusalTest,
    ::testing::Values(
        RefusedCase{"FactWrongToken", 2, kWrongToken + " " + kFactRequest, android::BAD_TYPE, ""},
        RefusedCase{"FlgrWrongToken", 1, kWrongToken + " " + kFlgrRequest + " " + kNullBinder,
                    android::BAD_TYPE, ""},
        RefusedCase{"FactEmpty", 2, "", android::BAD_TYPE, ""},
        RefusedCase{"FlgrNullCallback", 1, kServiceToken + " " + kFlgrRequest + " " + kNullBinder,
                    android::UNKNOWN_ERROR, ""},
        RefusedCase{"FlgrNoCallback", 1, kServiceToken + " " + kFlgrRequest, android::BAD_TYPE, ""},
        RefusedCase{"FactAbsentRecord", 2, kServiceToken + " 00000000", android::OK, kNullPointer},
        RefusedCase{"FlgrAbsentRecord", 1, kServiceToken + " 00000000 " + kNullBinder, android::OK,
                    kNullPointer},
        RefusedCase{"FactNoRecord", 2, kServiceToken, android::NOT_ENOUGH_DATA, ""},
        RefusedCase{"FactTwoStrings", 2, kServiceToken + " 01000000 63000000 70000000",
                    android::BAD_VALUE, ""},
        RefusedCase{"FlgrOneString", 1, kServiceToken + " 01000000 636c0000", android::BAD_VALUE,
                    ""},
        RefusedCase{"UnknownCode", 3, kServiceToken + " " + kFactRequest,
                    android::UNKNOWN_TRANSACTION, ""}),
    [](const ::testing::TestParamInfo<RefusedCase>& info) { return std::string(info.param.name); });

TEST_F(NativeServiceTest, SystemCodesGetTheDefaultHandling) {
    EXPECT_EQ(service_->pingBinder(), android::OK);
    ASSERT_EQ(transact(android::IBinder::INTERFACE_TRANSACTION, ""), android::OK);
    reply_.setDataPosition(0);
    EXPECT_EQ(android::String8(reply_.readString16()), android::String8("vemo.ipc.IFlgrService"));
    EXPECT_EQ(service_->queryLocalInterface(IFlgrService::descriptor), service_);
    EXPECT_EQ(service_->queryLocalInterface(android::String16("vemo.ipc.IFlgrServic")), nullptr);
    EXPECT_EQ(IFlgrService::asInterface(service_), service_);
    EXPECT_EQ(IFlgrService::asInterface(nullptr), nullptr);
}

TEST_F(NativeServiceTest, CompletionIgnoresAFailingCallback) {
    const sp<RecordingCallback> callback =
        new RecordingCallback(Status::fromExceptionCode(Status::EX_ILLEGAL_STATE));
    ASSERT_EQ(transactFlgr(kFlgrRequest, callback), android::OK);
    EXPECT_EQ(wireWords(reply_), kStatusOk);
    ASSERT_TRUE(connector_->waitForCompletions(1, 10s));
    EXPECT_EQ(callback->calls_, 1);
}

TEST(BnFlgrCallbackTest, UnmarshalsOnResultsAndChecksTheToken) {
    const sp<RecordingCallback> callback = new RecordingCallback();
    Parcel data;
    Parcel reply;
    setWireWords(&data, kCallbackToken + " 01000000");
    ASSERT_EQ(callback->transact(1, data, &reply), android::OK);
    EXPECT_EQ(wireWords(reply), kStatusOk);
    EXPECT_EQ(callback->calls_, 1);
    EXPECT_EQ(callback->status_, 0);

    setWireWords(&data, kServiceToken + " 01000000");
    reply.freeData();
    EXPECT_EQ(callback->transact(1, data, &reply), android::BAD_TYPE);
    setWireWords(&data, kCallbackToken + " 00000000");
    EXPECT_EQ(callback->transact(1, data, &reply), android::OK);
    EXPECT_EQ(wireWords(reply), kNullPointer);
    EXPECT_EQ(callback->calls_, 1);
}

}  // namespace
