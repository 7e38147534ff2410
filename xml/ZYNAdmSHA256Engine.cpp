// ZYNAdmSHA256Engine.cpp - the SHA-256 block engine: the CPU's SHA instructions or the portable rounds.
#include "ZYNAdmSHA256Engine.h"

#include <atomic>
#include <cstddef>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>
#define ZYN_SHA256_X86 1
#endif

alignas(16) static const uint32_t S_K[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

static const uint32_t S_initialHash[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                          0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

static std::atomic<bool> S_forcePortable(false);

static inline uint32_t sRotr(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

static inline uint32_t sLoadBigEndian(const unsigned char* p) {
  return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

static void sCompressPortable(uint32_t state[8], const unsigned char* data, size_t blocks) {
  for (; blocks != 0; --blocks, data += 64) {
    uint32_t w[64];
    for (int i = 0; i < 16; ++i) w[i] = sLoadBigEndian(data + 4 * i);
    for (int i = 16; i < 64; ++i) {
      const uint32_t s0 = sRotr(w[i - 15], 7) ^ sRotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
      const uint32_t s1 = sRotr(w[i - 2], 17) ^ sRotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
      w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }

    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
    // Fully unrolled, the register rotation below costs no moves.
#pragma GCC unroll 64
    for (int i = 0; i < 64; ++i) {
      const uint32_t t1 = h + (sRotr(e, 6) ^ sRotr(e, 11) ^ sRotr(e, 25)) + ((e & f) ^ (~e & g)) + S_K[i] + w[i];
      const uint32_t t2 = (sRotr(a, 2) ^ sRotr(a, 13) ^ sRotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
      h = g;
      g = f;
      f = e;
      e = d + t1;
      d = c;
      c = b;
      b = a;
      a = t1 + t2;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
    state[5] += f;
    state[6] += g;
    state[7] += h;
  }
}

#ifdef ZYN_SHA256_X86
static bool sDetectShaInstructions() {
  unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return false;
  if ((ecx & bit_SSSE3) == 0 || (ecx & bit_SSE4_1) == 0) return false;
  if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) return false;
  return (ebx & bit_SHA) != 0;
}

// The instructions work on the state as the word pairs ABEF and CDGH, and take the
// message schedule four words at a time: msg1/msg2 extend it, rnds2 does two rounds.
__attribute__((target("sha,sse4.1"))) static void sCompressSha(uint32_t state[8], const unsigned char* data,
                                                               size_t blocks) {
  const __m128i byteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);

  __m128i dcba = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&state[0]));
  __m128i hgfe = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&state[4]));
  __m128i cdab = _mm_shuffle_epi32(dcba, 0xB1);
  __m128i efgh = _mm_shuffle_epi32(hgfe, 0x1B);
  __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
  __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);

  for (; blocks != 0; --blocks, data += 64) {
    const __m128i abefSaved = abef;
    const __m128i cdghSaved = cdgh;
    __m128i msg[4];

    // Sixteen groups of four rounds. Unrolled, the indices are constants and msg[]
    // lives in registers.
#pragma GCC unroll 16
    for (int group = 0; group < 16; ++group) {
      __m128i& current = msg[group & 3];
      if (group < 4) {
        current = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * group));
        current = _mm_shuffle_epi8(current, byteSwap);
      }
      __m128i words = _mm_add_epi32(current, _mm_load_si128(reinterpret_cast<const __m128i*>(&S_K[4 * group])));
      cdgh = _mm_sha256rnds2_epu32(cdgh, abef, words);
      if (group >= 3 && group <= 14) {
        __m128i& next = msg[(group + 1) & 3];
        next = _mm_add_epi32(next, _mm_alignr_epi8(current, msg[(group + 3) & 3], 4));
        next = _mm_sha256msg2_epu32(next, current);
      }
      words = _mm_shuffle_epi32(words, 0x0E);
      abef = _mm_sha256rnds2_epu32(abef, cdgh, words);
      if (group >= 1 && group <= 12) {
        __m128i& previous = msg[(group + 3) & 3];
        previous = _mm_sha256msg1_epu32(previous, current);
      }
    }

    abef = _mm_add_epi32(abef, abefSaved);
    cdgh = _mm_add_epi32(cdgh, cdghSaved);
  }

  __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
  __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
  dcba = _mm_blend_epi16(feba, dchg, 0xF0);
  hgfe = _mm_alignr_epi8(dchg, feba, 8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(&state[0]), dcba);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(&state[4]), hgfe);
}
#endif

static bool sHasShaInstructions() {
#ifdef ZYN_SHA256_X86
  // Asked once; safe from static constructors and from several threads.
  static const bool S_hasSha = sDetectShaInstructions();
  return S_hasSha;
#else
  return false;
#endif
}

static void sCompress(uint32_t state[8], const unsigned char* data, size_t blocks) {
#ifdef ZYN_SHA256_X86
  if (!S_forcePortable.load(std::memory_order_relaxed) && sHasShaInstructions()) {
    sCompressSha(state, data, blocks);
    return;
  }
#endif
  sCompressPortable(state, data, blocks);
}

ZYNAdmSHA256Engine::ZYNAdmSHA256Engine() : _bitCount(0) { std::memcpy(_hash, S_initialHash, sizeof(_hash)); }

void ZYNAdmSHA256Engine::Update(const unsigned char* data, unsigned int blocks) {
  if (data == nullptr || blocks == 0) return;
  // 32-bit product on purpose: the count is defined that way, see the header.
  _bitCount += static_cast<unsigned int>(blocks * 512u);
  sCompress(_hash, data, blocks);
}

void ZYNAdmSHA256Engine::Finalize(const unsigned char* data, unsigned int length) {
  if (data == nullptr) length = 0;
  const unsigned int wholeBlocks = length / 64;
  Update(data, wholeBlocks);

  const unsigned int rest = length % 64;
  unsigned char tail[128] = {};
  if (rest != 0) std::memcpy(tail, data + static_cast<size_t>(wholeBlocks) * 64, rest);
  tail[rest] = 0x80;

  const uint64_t finalBits = _bitCount + static_cast<uint64_t>(rest) * 8;
  // The 0x80 byte and the 8-byte length must fit behind the rest, else a second block.
  const unsigned int tailLength = rest + 9 <= 64 ? 64 : 128;
  for (int i = 0; i < 8; ++i) tail[tailLength - 1 - i] = static_cast<unsigned char>(finalBits >> (8 * i));
  sCompress(_hash, tail, tailLength / 64);

  // The count is left as the bytes written into the padding: spent, not to be reused.
  std::memcpy(&_bitCount, tail + tailLength - 8, sizeof(_bitCount));
}

DString ZYNAdmSHA256Engine::GetValue() const {
  static const char S_digits[] = "0123456789abcdef";
  unsigned short text[64];
  for (int word = 0; word < 8; ++word) {
    for (int digit = 0; digit < 8; ++digit) {
      text[word * 8 + digit] = static_cast<unsigned short>(S_digits[(_hash[word] >> (28 - 4 * digit)) & 0xF]);
    }
  }
  return DString(text, 64);
}

void ZYNAdmSHA256Engine::GetWords(uint32_t words[8]) const { std::memcpy(words, _hash, sizeof(_hash)); }

bool ZYNAdmSHA256Engine::ForcePortable(bool force) { return S_forcePortable.exchange(force); }

bool ZYNAdmSHA256Engine::UsesHardware() { return !S_forcePortable.load() && sHasShaInstructions(); }
