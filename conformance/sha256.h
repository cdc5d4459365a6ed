/* SHA-256 (FIPS 180-4), small and without dependencies, so that the conformance kit builds for any
 * target that has a C compiler. */
#ifndef KORVANE_CONFORMANCE_SHA256_H
#define KORVANE_CONFORMANCE_SHA256_H

#include <stddef.h>
#include <stdint.h>

typedef struct Sha256 {
    uint32_t hash[8];
    uint64_t length; /* bytes taken so far */
    uint8_t block[64];
} Sha256;

void sha256_begin(Sha256* s);
void sha256_add(Sha256* s, const void* bytes, size_t count);

/* Writes the digest as 64 hexadecimal digits and a zero. */
void sha256_end(Sha256* s, char hex[65]);

#endif
