#pragma once
/*
 * The secure-aggregation core: plain functions with C linkage, integer codes,
 * and results delivered to registered callbacks.
 *
 * A handle masks vectors for the cloud so that the cloud learns only the sum
 * of a cohort's vectors. An initiate call stores the data under a fresh
 * request (its own X25519 key pair) and returns the participation request
 * text; the cloud answers with a mask directive, which vemoHandleMask checks
 * against the stored request and turns into a masked result, delivered to the
 * handle's result callback on a thread of the core's own (never inside the
 * caller's vemoHandleMask). A request is used by at most one vemoHandleMask
 * call, accepted or refused; keys and stored data are wiped when a request is
 * consumed, evicted or destroyed.
 *
 * Creation: VemoCoreConfig holds six 32-bit words.
 *   preferredProtocol  0 = AES-128-CTR mask generator; other values refused.
 *   pendingCapacity    most requests waiting for a directive (default 12);
 *                      a new request beyond it evicts the oldest (code 5).
 *   stage              1 = pairwise masks, every member reports (default 1);
 *                      no other stage exists.
 *   mostNeighbours     most neighbours a directive may list (default 12).
 *   fewestNeighbours   fewest neighbours a directive may list (default 1).
 *   reserved           always 0.
 *
 * Codes returned by every operation:
 *   0 success
 *   1 invalid argument: null pointer, bad handle, directive not JSON or with
 *     a wrong or missing member, FLGR blob not a multiple of 4 bytes, empty
 *     data, non-finite scale, bad creation words
 *   2 unknown, evicted or already used request
 *   3 directive refused: its kind, texts or length differ from the request's,
 *     it lists the request's own key or a key twice, its neighbour count is
 *     outside [fewestNeighbours, mostNeighbours], or its stage or generator is
 *     not supported
 *   4 cryptographic failure (an X25519 agreement refused, such as with a
 *     small-order key)
 *   5 request accepted, the oldest pending request evicted to make room
 *
 * Records: on the device pointers are 32 bits wide, so each record is made of
 * 32-bit words. Results and their texts belong to the core and are valid only
 * during the callback. Strings returned through `char** out` belong to the
 * caller, who releases them with vemoDestroyString.
 *
 * Thread-safety: every operation may be called from any thread, except that
 * vemoHandleDestroy must not be called from inside a result callback (it
 * waits for deliveries in flight, and after it returns none follows).
 */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum VemoPreferredProtocol {
    VEMO_PROTOCOL_AES128CTR = 0,
} VemoPreferredProtocol;

typedef enum VemoLogLevel {
    VEMO_LOG_ERROR = 1,
    VEMO_LOG_WARNING = 2,
    VEMO_LOG_INFO = 3,
    VEMO_LOG_DEBUG = 4,
    VEMO_LOG_VERBOSE = 5,
} VemoLogLevel;

typedef struct VemoCoreConfig {
    VemoPreferredProtocol preferredProtocol;
    uint32_t pendingCapacity;
    uint32_t stage;
    uint32_t mostNeighbours;
    uint32_t fewestNeighbours;
    uint32_t reserved;
} VemoCoreConfig;

/* A masked gradient blob: little-endian 32-bit words. */
typedef struct VemoFlgrResult {
    const uint8_t* blob;
    uint32_t length; /* bytes */
    const char* applicationId;
    const char* metadata;
    const char* cohortId;
} VemoFlgrResult;

/* A masked analytics vector and the texts its upload carries. */
typedef struct VemoIntegralResult {
    const int32_t* maskedData;
    uint32_t count;         /* elements, not bytes */
    const char* firstText;  /* the request's second name (campaign metadata) */
    const char* secondText; /* the request's name (application id) */
    const char* thirdText;  /* the session's cohort id */
} VemoIntegralResult;

/* Opaque, one pointer-sized word; null is never a valid handle. */
typedef struct VemoCoreHandle* VemoHandle;

typedef void (*VemoLogCallback)(VemoLogLevel level, const char* text);
typedef void (*VemoFlgrResultCallback)(VemoFlgrResult result, void* userdata);
typedef void (*VemoIntegralResultCallback)(VemoIntegralResult result, void* userdata);

/* Process-wide; messages above maxLevel are not produced. A null callback
 * silences the core. */
int vemoRegisterLoggingCallback(VemoLogCallback callback, VemoLogLevel maxLevel);

/* userdata is handed back unchanged to the result callbacks. */
int vemoHandleCreate(const VemoCoreConfig* config, void* userdata, VemoHandle* handle);

int vemoHandleRegisterFlgrResultCallback(VemoHandle handle, VemoFlgrResultCallback callback);
int vemoHandleRegisterIntegralResultCallback(VemoHandle handle,
                                             VemoIntegralResultCallback callback);

/* blob holds little-endian float32 values, each quantised to
 * round(value * scaleValue), saturating at the int32 range. */
int vemoHandleFlgrInitiateNewRequest(VemoHandle handle, const char* applicationId,
                                     const uint8_t* blob, size_t blobLength, float scaleValue,
                                     const char* metadata, char** out);
/* As above with the blob read from a file (at most 64 MiB). */
int vemoHandleFlgrInitiateNewRequestFilePath(VemoHandle handle, const char* applicationId,
                                             const char* filePath, float scaleValue,
                                             const char* metadata, char** out);

int vemoHandleIntegralInitiateNewRequest(VemoHandle handle, const char* name, const int32_t* data,
                                         unsigned int count, const char* secondName, char** out);

/* directive: the mask directive's JSON text. */
int vemoHandleMask(VemoHandle handle, const char* directive);

int vemoDestroyString(char* text);

/* Wipes every pending request, waits for deliveries in flight and frees the
 * handle. */
int vemoHandleDestroy(VemoHandle handle);

/* Logs the core's version, stage and mask generator at info level. */
int vemoLibPrintAttributes(void);

#ifdef __cplusplus
}
#endif
