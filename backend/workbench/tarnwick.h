/* The workbench for hosts of any compiler or language: a chain of filters over records of samples, in C11.
 *
 *     tarnwick_chain* chain = NULL;
 *     if (tarnwick_chain_create(json, "folder", count, &chain) || tarnwick_chain_apply(chain, samples, filtered, count))
 *         fprintf(stderr, "%s\n", tarnwick_last_error());
 *     tarnwick_chain_destroy(chain);
 *
 * Texts are UTF-8, names of files too, and end in a zero byte. Voltages are in volts. No function throws, prints or ends the
 * process.
 *
 * Errors: 0 is success, anything else a code of the enumeration below with a text that names the value and what was expected.
 * After an error nothing has changed: no array is written to, no chain exists that did not before.
 *
 * Threads: different chains may be used by different threads at once. Calls for one chain take turns. A chain must not be
 * destroyed while another thread uses it.
 */
#ifndef TARNWICK_WORKBENCH_TARNWICK_H
#define TARNWICK_WORKBENCH_TARNWICK_H

#include <stddef.h> /* NOLINT(modernize-deprecated-headers): C has no other */

#include "framework/export.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    TARNWICK_OK = 0,
    TARNWICK_BAD_ARGUMENT = 1, /* a pointer, size or call that the function does not take */
    TARNWICK_BAD_CHAIN = 2,    /* the chain: no JSON, a wrong key or value, a setting that a filter refuses */
    TARNWICK_BAD_DATA = 3,     /* the samples, or a file that the chain names */
    TARNWICK_NO_MEMORY = 4,
    TARNWICK_INTERNAL = 5 /* anything else: a fault of this library */
};

/* A chain of filters for records of one length. */
typedef struct tarnwick_chain tarnwick_chain; /* NOLINT(modernize-use-using): C has no other */

/* The library's version, such as "1.0.0". Never null, never to be freed. */
TARNWICK_WORKBENCH_API const char* tarnwick_version(void);

/* Makes a chain from the JSON text of a chain file and opens the files that it names.
 *   chain_json    the text; its device says all that the filters need, as nothing is searched for in the samples
 *   base_folder   where relative names of files start; null or "": the current folder
 *   sample_count  samples of each record, 1 to 2147483647: whole repetitions of the pattern that the device describes
 *   chain         gets the chain, which the caller destroys; null after an error
 * Errors: TARNWICK_BAD_ARGUMENT a null chain_json or chain, a sample_count out of range; TARNWICK_BAD_CHAIN; TARNWICK_BAD_DATA a
 * file that cannot be read, or sizes in the chain far above sample_count; TARNWICK_NO_MEMORY. */
TARNWICK_WORKBENCH_API int tarnwick_chain_create(const char* chain_json, const char* base_folder, size_t sample_count,
                                                 tarnwick_chain** chain);

/* Runs a record through the enabled filters, one after the other. Each record stands by itself: an equaliser that finds its
 * taps finds them again, and the same samples give the same result to the last bit, whatever came before.
 *   samples       [V] sample_count of them; NaN and infinity flow through to all that they reach
 *   result        [V] sample_count of them; may be samples, or overlap them; written to on success alone
 *   sample_count  as given to tarnwick_chain_create
 * Errors: TARNWICK_BAD_ARGUMENT a null pointer, another sample_count; TARNWICK_BAD_CHAIN a setting that a filter refuses now that
 * it sees a record, pattern lock that it needs and the device denies; TARNWICK_BAD_DATA samples that a filter refuses;
 * TARNWICK_NO_MEMORY. */
TARNWICK_WORKBENCH_API int tarnwick_chain_apply(tarnwick_chain* chain, const double* samples, double* result,
                                                size_t sample_count);

/* Describes the last record that tarnwick_chain_apply has run, in front of the filters and behind each: levels, eyes, error
 * ratio, taps, as JSON, {"stages": [...]}, the text of "tarnwick apply --json". It is measured when it is first asked for.
 *   json      gets the text with its zero byte; null, with capacity 0, when only its size is wanted
 *   capacity  [bytes] of json
 *   needed    gets the text's size with its zero byte [bytes], also when capacity is too small; may be null unless json is
 * Errors: TARNWICK_BAD_ARGUMENT a null chain, a null json with a capacity or without needed, a capacity that is too small,
 * nothing applied yet; TARNWICK_NO_MEMORY. */
TARNWICK_WORKBENCH_API int tarnwick_chain_report(tarnwick_chain* chain, char* json, size_t capacity, size_t* needed);

/* Frees a chain. Null is fine. */
TARNWICK_WORKBENCH_API void tarnwick_chain_destroy(tarnwick_chain* chain);

/* Why the last call of this thread that returned a code failed; "" after success. It stays as it is until the thread's next such
 * call. Never null, never to be freed. */
TARNWICK_WORKBENCH_API const char* tarnwick_last_error(void);

#ifdef __cplusplus
}
#endif

#endif
