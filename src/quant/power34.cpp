#include "quant/power34.h"

namespace tavik::portable {

void raise_to_three_quarters(std::span<const i32> spectrum, u32 *out) {
    for (const i32 x : spectrum) {
        const u32 a = magnitude(x);
        *out++ = a < tables::small_pow34_entries ? tables::small_pow34[a] : pow34(a);
    }
}

u32 largest(std::span<const u32> values) {
    u32 largest = 0;
    for (const u32 value : values) largest = std::max(largest, value);
    return largest;
}

}  // namespace tavik::portable
