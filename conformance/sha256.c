#include "sha256.h"

static const uint32_t kRound[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

static uint32_t rotr(uint32_t x, int n) { return x >> n | x << (32 - n); }

static void compress(uint32_t hash[8], const uint8_t* block) {
    uint32_t w[64];
    uint32_t v[8];
    for (int i = 0; i < 16; ++i) {
        w[i] = (uint32_t)block[4 * i] << 24 | (uint32_t)block[4 * i + 1] << 16 |
               (uint32_t)block[4 * i + 2] << 8 | block[4 * i + 3];
    }
    for (int i = 16; i < 64; ++i) {
        const uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ w[i - 15] >> 3;
        const uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ w[i - 2] >> 10;
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    for (int i = 0; i < 8; ++i) {
        v[i] = hash[i];
    }
    for (int i = 0; i < 64; ++i) {
        const uint32_t e = v[4];
        const uint32_t a = v[0];
        const uint32_t choice = (e & v[5]) ^ (~e & v[6]);
        const uint32_t majority = (a & v[1]) ^ (a & v[2]) ^ (v[1] & v[2]);
        const uint32_t t1 =
            v[7] + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + choice + kRound[i] + w[i];
        const uint32_t t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + majority;
        for (int k = 7; k > 0; --k) {
            v[k] = v[k - 1];
        }
        v[4] += t1;
        v[0] = t1 + t2;
    }
    for (int i = 0; i < 8; ++i) {
        hash[i] += v[i];
    }
}

void sha256_begin(Sha256* s) {
    static const uint32_t start[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                      0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    for (int i = 0; i < 8; ++i) {
        s->hash[i] = start[i];
    }
    s->length = 0;
}

void sha256_add(Sha256* s, const void* bytes, size_t count) {
    const uint8_t* const p = bytes;
    for (size_t i = 0; i < count; ++i) {
        s->block[s->length++ % 64] = p[i];
        if (s->length % 64 == 0) {
            compress(s->hash, s->block);
        }
    }
}

void sha256_end(Sha256* s, char hex[65]) {
    const uint64_t bits = s->length * 8;
    const uint8_t one = 0x80;
    const uint8_t zero = 0;
    sha256_add(s, &one, 1);
    while (s->length % 64 != 56) {
        sha256_add(s, &zero, 1);
    }
    uint8_t length[8];
    for (int i = 0; i < 8; ++i) {
        length[i] = (uint8_t)(bits >> (56 - 8 * i));
    }
    sha256_add(s, length, sizeof length);
    for (int i = 0; i < 64; ++i) {
        hex[i] = "0123456789abcdef"[s->hash[i / 8] >> (28 - 4 * (i % 8)) & 15];
    }
    hex[64] = '\0';
}
