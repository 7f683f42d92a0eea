// 64 bytes per step: two 128-entry byte permutes give both halves of the
// table and the index's top bit picks between them.
#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>

#include "binocular/match_kernels.h"

namespace kvdsr::binocular {

namespace {
struct VbmiTable {
    __m512i q0, q1, q2, q3;
    explicit VbmiTable(const uint8_t* t)
        : q0(_mm512_loadu_si512(t)),
          q1(_mm512_loadu_si512(t + 64)),
          q2(_mm512_loadu_si512(t + 128)),
          q3(_mm512_loadu_si512(t + 192)) {}
    __m512i look(__m512i i) const {
        const __m512i low = _mm512_permutex2var_epi8(q0, i, q1);
        const __m512i high = _mm512_permutex2var_epi8(q2, i, q3);
        return _mm512_mask_blend_epi8(_mm512_movepi8_mask(i), low, high);
    }
};
}  // namespace

void MatchGroups_AVX512VBMI(uint8_t* row, uint32_t groups, const uint8_t* evenTable, const uint8_t* oddTable) {
    const VbmiTable even(evenTable), odd(oddTable);
    const bool same = evenTable == oddTable;
    const __mmask64 oddLanes = 0xAAAAAAAAAAAAAAAAull;
    for (uint32_t g = 0; g < groups; ++g, row += kMatchGroup) {
        const __m512i v = _mm512_loadu_si512(row);
        __m512i r = even.look(v);
        if (!same) r = _mm512_mask_blend_epi8(oddLanes, r, odd.look(v));
        _mm512_storeu_si512(row, r);
    }
}

}  // namespace kvdsr::binocular
#endif
