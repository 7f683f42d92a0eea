#include "binocular/match_kernels.h"

#include <cstring>

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace kvdsr::binocular {

void MatchRow_C(uint8_t* row, uint32_t count, const uint8_t* evenTable, const uint8_t* oddTable) {
    if (evenTable == oddTable) {
        // Eight bytes per step through one word, so that the stores cannot
        // make the compiler re-read what it has loaded.
        uint32_t x = 0;
        for (; x + 8 <= count; x += 8) {
            uint64_t in, out = 0;
            std::memcpy(&in, row + x, 8);
            for (int k = 0; k < 8; ++k) out |= uint64_t(evenTable[(in >> (8 * k)) & 0xFF]) << (8 * k);
            std::memcpy(row + x, &out, 8);
        }
        for (; x < count; ++x) row[x] = evenTable[row[x]];
        return;
    }
    uint32_t x = 0;
    for (; x + 1 < count; x += 2) {
        row[x] = evenTable[row[x]];
        row[x + 1] = oddTable[row[x + 1]];
    }
    if (x < count) row[x] = evenTable[row[x]];
}

void MatchGroups_C(uint8_t* row, uint32_t groups, const uint8_t* evenTable, const uint8_t* oddTable) {
    MatchRow_C(row, groups * kMatchGroup, evenTable, oddTable);
}

#if defined(__aarch64__)
namespace {
struct NeonTable {
    uint8x16x4_t part[4];  // entries 0-63, 64-127, 128-191, 192-255
    explicit NeonTable(const uint8_t* t) {
        for (int p = 0; p < 4; ++p) part[p] = vld1q_u8_x4(t + 64 * p);
    }
    // Out-of-range indices leave a lane as it is, so each quarter fills only
    // its own lanes.
    uint8x16_t look(uint8x16_t i) const {
        const uint8x16_t quarter = vdupq_n_u8(64);
        uint8x16_t r = vqtbl4q_u8(part[0], i);
        i = vsubq_u8(i, quarter);
        r = vqtbx4q_u8(r, part[1], i);
        i = vsubq_u8(i, quarter);
        r = vqtbx4q_u8(r, part[2], i);
        i = vsubq_u8(i, quarter);
        return vqtbx4q_u8(r, part[3], i);
    }
};
}  // namespace

void MatchGroups_NEON(uint8_t* row, uint32_t groups, const uint8_t* evenTable, const uint8_t* oddTable) {
    const NeonTable even(evenTable), odd(oddTable);
    for (uint32_t g = 0; g < groups; ++g, row += kMatchGroup)
        for (int h = 0; h < 2; ++h) {
            uint8x16x2_t v = vld2q_u8(row + 32 * h);  // even bytes, odd bytes
            v.val[0] = even.look(v.val[0]);
            v.val[1] = odd.look(v.val[1]);
            vst2q_u8(row + 32 * h, v);
        }
}
#endif

namespace {

int fillMatchVariants(MatchVariant* v) {
    int n = 0;
    v[n++] = {"C", MatchGroups_C};
#if defined(__x86_64__) || defined(__i386__)
    if (cpuHasAvx512Vbmi()) v[n++] = {"AVX512VBMI", MatchGroups_AVX512VBMI};
#endif
#if defined(__aarch64__)
    v[n++] = {"NEON", MatchGroups_NEON};
#endif
    return n;
}

KernelDispatch<MatchGroupsFn, 2> g_match(fillMatchVariants);

}  // namespace

int matchVariants(const MatchVariant** out) { return g_match.variants(out); }
void setMatchKernel(MatchGroupsFn fn) { g_match.set(fn); }

void matchRow(uint8_t* row, uint32_t count, const uint8_t* evenTable, const uint8_t* oddTable) {
    const uint32_t groups = count / kMatchGroup;
    if (groups) g_match.kernel()(row, groups, evenTable, oddTable);
    MatchRow_C(row + kMatchGroup * groups, count - kMatchGroup * groups, evenTable, oddTable);
}

}  // namespace kvdsr::binocular
