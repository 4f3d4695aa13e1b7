/* The C interface as a C compiler and a C caller see it: values, every misuse that leaves behaviour defined, threads. */
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "workbench/tarnwick.h"

#if defined(__has_include)
#if __has_include(<threads.h>)
#include <threads.h>
#define WITH_THREADS 1
#endif
#endif

enum { SAMPLES_PER_UI = 8, COUNT = 127 * SAMPLES_PER_UI };

static int failures = 0;

static void check(int holds, int line, const char* what)
{
    if (!holds) {
        ++failures;
        fprintf(stderr, "cinterface_test.c:%d: %s; last error: \"%s\"\n", line, what, tarnwick_last_error());
    }
}
#define CHECK(holds) check((holds) != 0, __LINE__, #holds)

#define DEVICE                                                                                               \
    "\"device\": {\"baudRateGBd\": 10, \"samplesPerUi\": 8, \"signalCoding\": \"NRZ\", \"patternSymbols\": " \
    "{\"prbs\": 7}}"
static const char average[] = "{" DEVICE ", \"filters\": [{\"type\": \"moving-average\", \"WindowLength\": 5}]}";
/* Filters that find something in the record, and keep it. */
static const char fitted[] = "{" DEVICE
                             ", \"filters\": [{\"type\": \"bessel-thomson\"}, {\"type\": \"ffe\", \"numberOfTaps\": 3},"
                             " {\"type\": \"dfe\", \"numberOfTaps\": 1}]}";

static int fails_with(int code, int expected, const char* text)
{
    const int holds = code == expected && strstr(tarnwick_last_error(), text) != NULL;
    if (!holds)
        fprintf(stderr, "code is %d, expected %d with \"%s\"\n", code, expected, text);
    return holds;
}

static tarnwick_chain* created(const char* json)
{
    tarnwick_chain* chain = NULL;
    CHECK(tarnwick_chain_create(json, NULL, COUNT, &chain) == TARNWICK_OK && chain != NULL);
    CHECK(tarnwick_last_error()[0] == '\0');
    return chain;
}

/* x^7 + x^6 + 1 behind a line whose memory is so many samples. */
static void record(double* samples, double memory)
{
    unsigned state = 0x7f;
    double volt = 0.0;
    for (int k = 0; k < 2 * COUNT; ++k) {
        volt += (((state >> 6) & 1 ? 0.2 : -0.2) - volt) / memory;
        samples[k % COUNT] = volt;
        if (k % SAMPLES_PER_UI == SAMPLES_PER_UI - 1)
            state = ((state << 1) | (((state >> 6) ^ (state >> 5)) & 1)) & 0x7f;
    }
}

static int same(const double* a, const double* b, size_t count)
{
    return memcmp(a, b, count * sizeof *a) == 0;
}

static void test_values(void)
{
    static double samples[COUNT + 1], before[COUNT], result[COUNT];
    tarnwick_chain* chain = created(average);
    record(samples, 4.0);
    memcpy(before, samples, sizeof before);
    CHECK(tarnwick_version()[0] >= '0' && tarnwick_version()[0] <= '9');
    CHECK(tarnwick_chain_apply(chain, samples, result, COUNT) == TARNWICK_OK);
    CHECK(same(samples, before, COUNT));
    for (int k = 2; k < COUNT - 2; ++k)
        if (!(fabs(result[k] - (samples[k - 2] + samples[k - 1] + samples[k] + samples[k + 1] + samples[k + 2]) / 5) <
              1e-15)) {
            CHECK(!"the mean of five neighbours");
            break;
        }
    /* In place, and one sample on. */
    CHECK(tarnwick_chain_apply(chain, samples, samples, COUNT) == TARNWICK_OK && same(samples, result, COUNT));
    memcpy(samples, before, sizeof before);
    CHECK(tarnwick_chain_apply(chain, samples, samples + 1, COUNT) == TARNWICK_OK && same(samples + 1, result, COUNT));
    CHECK(samples[0] == before[0]);
    tarnwick_chain_destroy(chain);
}

static void test_records_stand_by_themselves(void)
{
    static double first[COUNT], second[COUNT], expected[COUNT], result[COUNT];
    tarnwick_chain *chain = created(fitted), *fresh = created(fitted);
    record(first, 6.0);
    record(second, 2.0);
    CHECK(tarnwick_chain_apply(fresh, first, expected, COUNT) == TARNWICK_OK);
    CHECK(tarnwick_chain_apply(chain, second, result, COUNT) == TARNWICK_OK);
    CHECK(tarnwick_chain_apply(chain, first, result, COUNT) == TARNWICK_OK);
    CHECK(same(result, expected, COUNT));
    tarnwick_chain_destroy(chain);
    tarnwick_chain_destroy(fresh);
}

static void test_misuse_of_create(void)
{
    static const struct {
        const char* json;
        size_t count;
        int code;
        const char* text;
    } cases[] = {
        {NULL, COUNT, TARNWICK_BAD_ARGUMENT, "chain_json is null"},
        {average, 0, TARNWICK_BAD_ARGUMENT, "sample_count is 0"},
        {average, (size_t)INT32_MAX + 1, TARNWICK_BAD_ARGUMENT, "sample_count is 2147483648"},
        {average, SIZE_MAX, TARNWICK_BAD_ARGUMENT, "expected 1 to 2147483647"},
        {"", COUNT, TARNWICK_BAD_CHAIN, "is no JSON"},
        {"{\"filters\": [", COUNT, TARNWICK_BAD_CHAIN, "is no JSON"},
        {"{\"filters\": [], \"\xff\xfe\": 1}", COUNT, TARNWICK_BAD_CHAIN, "is no JSON"},
        {"[]", COUNT, TARNWICK_BAD_CHAIN, "chain_json"},
        {"{\"filters\": [{\"type\": \"coppy\"}]}", COUNT, TARNWICK_BAD_CHAIN, "the nearest one is \"copy\""},
        {"{\"filters\": [{\"type\": \"deembedding\", \"sparamFileName\": \"absent.s2p\"}]}", COUNT, TARNWICK_BAD_DATA,
         "absent.s2p"},
        {"{\"device\": {\"samplesPerUi\": 8, \"patternLengthUi\": 100000000}, \"filters\": [{\"type\": \"copy\"}]}",
         COUNT, TARNWICK_BAD_DATA, "the record has 1016"},
    };
    static const char* const folders[] = {NULL, "", "no such folder", "\xff\xfe"};
    for (size_t k = 0; k < sizeof cases / sizeof *cases; ++k)
        for (size_t n = 0; n < sizeof folders / sizeof *folders; ++n) {
            tarnwick_chain* chain = (tarnwick_chain*)&failures;
            double sample = 1.0;
            CHECK(fails_with(tarnwick_chain_create(cases[k].json, folders[n], cases[k].count, &chain), cases[k].code,
                             cases[k].text));
            CHECK(chain == NULL);
            CHECK(fails_with(tarnwick_chain_apply(chain, &sample, &sample, 1), TARNWICK_BAD_ARGUMENT, "chain is null"));
            CHECK(sample == 1.0);
            tarnwick_chain_destroy(chain);
        }
    CHECK(fails_with(tarnwick_chain_create(average, NULL, COUNT, NULL), TARNWICK_BAD_ARGUMENT, "chain is null"));
}

static void test_misuse_of_apply(void)
{
    static double samples[COUNT], result[COUNT];
    static const struct {
        const char* json;
        int code;
        const char* text;
    } refused[] = {
        {"{\"device\": {\"baudRateGBd\": 10, \"samplesPerUi\": 8, \"patternLengthUi\": 127}, \"filters\": "
         "[{\"type\": \"bessel-thomson\", \"order\": 40}]}",
         TARNWICK_BAD_CHAIN, "order is 40"},
        {"{\"device\": {\"baudRateGBd\": 10, \"samplesPerUi\": 8, \"patternLengthUi\": 500}, \"filters\": "
         "[{\"type\": \"bessel-thomson\"}]}",
         TARNWICK_BAD_DATA, "expected at least one pattern of 4000 samples"},
    };
    tarnwick_chain* chain = created(average);
    record(samples, 4.0);
    for (int k = 0; k < COUNT; ++k)
        result[k] = 7.0;
    CHECK(fails_with(tarnwick_chain_apply(NULL, samples, result, COUNT), TARNWICK_BAD_ARGUMENT, "chain is null"));
    CHECK(fails_with(tarnwick_chain_apply(chain, NULL, result, COUNT), TARNWICK_BAD_ARGUMENT, "samples is null"));
    CHECK(fails_with(tarnwick_chain_apply(chain, samples, NULL, COUNT), TARNWICK_BAD_ARGUMENT, "result is null"));
    CHECK(fails_with(tarnwick_chain_apply(chain, samples, result, COUNT - 1), TARNWICK_BAD_ARGUMENT, "expected 1016"));
    CHECK(fails_with(tarnwick_chain_apply(chain, samples, result, SIZE_MAX), TARNWICK_BAD_ARGUMENT, "expected 1016"));
    CHECK(fails_with(tarnwick_chain_apply(chain, samples, result, 0), TARNWICK_BAD_ARGUMENT, "sample_count is 0"));
    tarnwick_chain_destroy(chain);
    for (size_t k = 0; k < sizeof refused / sizeof *refused; ++k) {
        chain = NULL;
        int code = tarnwick_chain_create(refused[k].json, NULL, COUNT, &chain);
        if (code == TARNWICK_OK)
            code = tarnwick_chain_apply(chain, samples, result, COUNT);
        CHECK(fails_with(code, refused[k].code, refused[k].text));
        tarnwick_chain_destroy(chain);
    }
    for (int k = 0; k < COUNT; ++k)
        if (result[k] != 7.0) {
            CHECK(!"the result stays as it was after errors");
            break;
        }
    tarnwick_chain_destroy(created(average)); /* whose success takes the last error away */
}

static void test_values_that_are_not_finite(void)
{
    static double samples[COUNT], result[COUNT];
    size_t needed = 0;
    tarnwick_chain* chain = created(average);
    record(samples, 4.0);
    samples[100] = NAN;
    samples[500] = INFINITY;
    CHECK(tarnwick_chain_apply(chain, samples, result, COUNT) == TARNWICK_OK);
    CHECK(isnan(result[100]) && !isfinite(result[500]));
    CHECK(tarnwick_chain_report(chain, NULL, 0, &needed) == TARNWICK_OK && needed > 1);
    tarnwick_chain_destroy(chain);
}

static void test_report(void)
{
    static double samples[COUNT], result[COUNT];
    size_t needed = 0, again = 0;
    char* text = NULL;
    tarnwick_chain* chain = created(fitted);
    record(samples, 6.0);
    CHECK(fails_with(tarnwick_chain_report(chain, NULL, 0, &needed), TARNWICK_BAD_ARGUMENT, "no record yet"));
    CHECK(tarnwick_chain_apply(chain, samples, result, COUNT) == TARNWICK_OK);
    CHECK(fails_with(tarnwick_chain_report(NULL, NULL, 0, &needed), TARNWICK_BAD_ARGUMENT, "chain is null"));
    CHECK(fails_with(tarnwick_chain_report(chain, NULL, 0, NULL), TARNWICK_BAD_ARGUMENT, "needed"));
    CHECK(fails_with(tarnwick_chain_report(chain, NULL, 9, &needed), TARNWICK_BAD_ARGUMENT, "json is null"));
    CHECK(tarnwick_chain_report(chain, NULL, 0, &needed) == TARNWICK_OK && needed > 100);
    text = calloc(needed + 1, 1);
    if (text != NULL) {
        text[needed] = '#';
        CHECK(fails_with(tarnwick_chain_report(chain, text, needed - 1, &again), TARNWICK_BAD_ARGUMENT, "capacity is"));
        CHECK(again == needed && text[0] == '\0');
        CHECK(tarnwick_chain_report(chain, text, needed, NULL) == TARNWICK_OK);
        CHECK(strlen(text) + 1 == needed && text[needed] == '#');
        CHECK(strstr(text, "\"appliedTaps\"") != NULL && strstr(text, "\"openingPercent\"") != NULL);
        CHECK(strstr(text, "\"dfe\"") != NULL && strstr(text, "acquisition") == NULL);
    }
    /* A failed apply leaves the report of the record before. */
    CHECK(fails_with(tarnwick_chain_apply(chain, samples, NULL, COUNT), TARNWICK_BAD_ARGUMENT, "result is null"));
    CHECK(tarnwick_chain_report(chain, NULL, 0, &again) == TARNWICK_OK && again == needed);
    free(text);
    tarnwick_chain_destroy(chain);
}

#if defined(WITH_THREADS)
static tarnwick_chain* shared;
static double shared_samples[COUNT], shared_expected[COUNT];

/* Chains of its own, one for all, and failures of its own. */
static int work(void* number)
{
    const int own = *(const int*)number;
    double* result = malloc(COUNT * sizeof *result);
    int wrong = result == NULL;
    for (int round = 0; !wrong && round < 20; ++round) {
        tarnwick_chain* chain = NULL;
        size_t needed = 0;
        char text[64];
        snprintf(text, sizeof text, "sample_count is %d;", own);
        wrong |= tarnwick_chain_apply(shared, shared_samples, result, (size_t)own) != TARNWICK_BAD_ARGUMENT;
        thrd_yield();
        wrong |= strstr(tarnwick_last_error(), text) == NULL;
        wrong |= tarnwick_chain_apply(shared, shared_samples, result, COUNT) != TARNWICK_OK;
        wrong |= !same(result, shared_expected, COUNT) || tarnwick_last_error()[0] != '\0';
        wrong |= tarnwick_chain_report(shared, NULL, 0, &needed) != TARNWICK_OK;
        wrong |= tarnwick_chain_create(fitted, NULL, COUNT, &chain) != TARNWICK_OK;
        wrong |= tarnwick_chain_apply(chain, shared_samples, result, COUNT) != TARNWICK_OK;
        wrong |= !same(result, shared_expected, COUNT);
        tarnwick_chain_destroy(chain);
    }
    free(result);
    return wrong;
}

static void test_threads(void)
{
    enum { THREADS = 4 };
    thrd_t threads[THREADS];
    int numbers[THREADS];
    shared = created(fitted);
    record(shared_samples, 6.0);
    CHECK(tarnwick_chain_apply(shared, shared_samples, shared_expected, COUNT) == TARNWICK_OK);
    CHECK(fails_with(tarnwick_chain_create(NULL, NULL, 1, NULL), TARNWICK_BAD_ARGUMENT, "chain is null"));
    for (int k = 0; k < THREADS; ++k) {
        numbers[k] = k + 1;
        CHECK(thrd_create(&threads[k], work, &numbers[k]) == thrd_success);
    }
    for (int k = 0; k < THREADS; ++k) {
        int wrong = 1;
        CHECK(thrd_join(threads[k], &wrong) == thrd_success && !wrong);
    }
    CHECK(strstr(tarnwick_last_error(), "chain is null") != NULL); /* this thread's, whatever the others met */
    tarnwick_chain_destroy(shared);
}
#endif

int main(void)
{
    CHECK(tarnwick_last_error()[0] == '\0');
    tarnwick_chain_destroy(NULL);
    test_values();
    test_records_stand_by_themselves();
    test_misuse_of_create();
    test_misuse_of_apply();
    test_values_that_are_not_finite();
    test_report();
#if defined(WITH_THREADS)
    test_threads();
#else
    puts("cinterface_test: threads not tried: this C library has no <threads.h>");
#endif
    return failures != 0;
}
