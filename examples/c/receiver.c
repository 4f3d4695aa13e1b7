/* A host in C: a capture through the reference receiver and an equaliser, and the report of what that did to its eye. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "workbench/tarnwick.h"

enum { BITS = 127, SAMPLES_PER_UI = 16, COUNT = BITS * SAMPLES_PER_UI };

static const char chain_json[] =
    "{\"device\": {\"baudRateGBd\": 10.3125, \"samplesPerUi\": 16, \"signalCoding\": \"NRZ\", \"patternSymbols\": "
    "{\"prbs\": 7}},"
    " \"filters\": [{\"type\": \"bessel-thomson\"}, {\"type\": \"ffe\", \"numberOfTaps\": 5}]}";

/* One period of x^7 + x^6 + 1 between -0.2 V and 0.2 V, behind a line that smears each bit over the next ones. */
static void capture(double* samples)
{
    unsigned state = 0x7f;
    double volt = -0.2;
    for (int period = 0; period < 2; ++period) /* the first one settles the line */
        for (int bit = 0; bit < BITS; ++bit) {
            const unsigned next = ((state >> 6) ^ (state >> 5)) & 1;
            const double level = (state >> 6) & 1 ? 0.2 : -0.2;
            state = ((state << 1) | next) & 0x7f;
            for (int k = 0; k < SAMPLES_PER_UI; ++k) {
                volt += (level - volt) / 12.0;
                samples[bit * SAMPLES_PER_UI + k] = volt;
            }
        }
}

/* A JSON reader does this better: the opening of each eye, in front of the filters and behind each. */
static void print_openings(const char* report)
{
    static const char key[] = "\"openingPercent\": ";
    static const char* const places[] = {"as captured", "behind the receiver", "behind the equaliser"};
    int place = 0;
    for (const char* at = strstr(report, key); at != NULL && place < 3; at = strstr(at + 1, key))
        printf("%-20s %5.1f %% open\n", places[place++], strtod(at + strlen(key), NULL));
}

int main(void)
{
    static double samples[COUNT];
    tarnwick_chain* chain = NULL;
    size_t size = 0;
    char* report = NULL;
    int code;

    capture(samples);
    code = tarnwick_chain_create(chain_json, NULL, COUNT, &chain);
    if (!code)
        code = tarnwick_chain_apply(chain, samples, samples, COUNT); /* in place */
    if (!code)
        code = tarnwick_chain_report(chain, NULL, 0, &size);
    if (!code && (report = malloc(size)) != NULL)
        code = tarnwick_chain_report(chain, report, size, NULL);
    if (code)
        fprintf(stderr, "receiver: error %d: %s\n", code, tarnwick_last_error());
    else if (report != NULL)
        print_openings(report);
    free(report);
    tarnwick_chain_destroy(chain);
    return code || report == NULL;
}
