#ifndef FACT_FACT_API_H
#define FACT_FACT_API_H
/*
 * The analytics library's flat surface: NUL-terminated strings and plain
 * function pointers in, a status out (0 success, 1 failure). No exception
 * crosses it; every failure is logged once, under the tag "Vemo:FactApi".
 *
 * Threads: every entry point serialises on one library-wide mutex, so any
 * thread may call any entry point at any time. The callbacks below run on the
 * calling thread while that mutex is held; an entry point called from inside
 * one of them is refused with status 1 and an error line (never a deadlock).
 * Callbacks must therefore not call back into the library, and must copy
 * anything they keep: the pointers they receive are valid only for the call.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 0 = success, 1 = failure. */
typedef uint32_t fact_status_t;

/*
 * Receives one collected vector: its elements, their count, its application
 * id ("<data producer>_<cohort value>_..._<campaign id>", "_" inside a value
 * written "\_") and its metadata, a JSON object text.
 */
typedef void (*fact_vector_callback_t)(const int* values, unsigned int length,
                                       const char* applicationId, const char* metadata);

/*
 * Hands a campaign's "data_producer_config" (compact JSON text, or "" when
 * the campaign set was emptied) to the named data producer; 0 = accepted.
 */
typedef int (*fact_config_callback_t)(const char* dataProducer, const char* configuration);

/*
 * Receives one part of a split application id: a cohort-filter name of the
 * campaign and the value the id carries for it (unescaped). Return 0 to
 * continue; any other value stops the split, which then fails.
 */
typedef int (*fact_split_callback_t)(const char* cohortFilterName, const char* value);

/* Installs the callback that receives collected vectors; null is refused and
 * leaves an earlier callback in place. */
fact_status_t factVemo_SetVectorCallback(fact_vector_callback_t vectorCallback);

/* Registers the configuration callback of a data producer. A name that is
 * already registered keeps its first callback (status 0 all the same). */
fact_status_t factDataProducerAdapter_SetConfigurationCallback(
    const char* dataProducerName, fact_config_callback_t configCallback);

/* Loads the campaign document at `path`, replacing every loaded campaign, and
 * hands its "data_producer_config" to the registered data producer. */
fact_status_t fact_CreateCampaign(const char* path);

/* Feeds one input event (JSON text: "data_producer" and an "attributes" array
 * of {"key","value"} strings); may deliver vectors to the vector callback. */
fact_status_t factDataProducerAdapter_SendEvent(const char* dataProducer, const char* factEvent);

/* Removes the loaded campaign with this id; vectors already collected for it
 * stay until the next send. An unknown id fails. */
fact_status_t fact_DeleteCampaign(const char* campaignId);

/*
 * Reverses the application-id composition for the loaded campaign
 * `campaignId`: checks the data producer and campaign id parts, then calls
 * `resultCallback` once per cohort filter, in the campaign's order, with the
 * filter name and its value. Fails (1) when the id does not belong to the
 * campaign, has the wrong number of parts, or the callback returns non-zero.
 * The composition escapes "_" but not "\", so a value that ends in a
 * backslash cannot be told apart from an escaped "_" and does not split back.
 */
fact_status_t fact_SplitApplicationId(const char* campaignId, const char* applicationId,
                                      fact_split_callback_t resultCallback);

/*
 * Rebuilds the `fact::Vector` of the loaded campaign `campaignId` from the
 * elements a vector callback received: `vectorSize` must be non-zero and equal
 * to the campaign's vector length. The rebuilt vector (elements and the
 * campaign's metadata text) is handed to `resultCallback`, whose application
 * id argument is the campaign id.
 */
fact_status_t factVector_Deserialize(const char* campaignId, const int* vectorData,
                                     unsigned int vectorSize,
                                     fact_vector_callback_t resultCallback);

#ifdef __cplusplus
}
#endif

#endif /* FACT_FACT_API_H */
