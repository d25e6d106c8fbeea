#include "quant/power34.h"

namespace tavik::portable {

// By fours: neighbouring lines are of one size mostly, so that this branch is easier to predict than one for each line.
void raise_to_three_quarters(std::span<const i32> spectrum, u32 *out) {
    for (const i32 *x = spectrum.data(), *const end = x + spectrum.size(); x != end; x += 4, out += 4) {
        const u32 a[4] = {magnitude(x[0]), magnitude(x[1]), magnitude(x[2]), magnitude(x[3])};
        if ((a[0] | a[1] | a[2] | a[3]) < tables::small_pow34_entries) {
            for (u32 i = 0; i < 4; ++i) out[i] = tables::small_pow34[a[i]];
        } else {
            for (u32 i = 0; i < 4; ++i) out[i] = pow34(a[i]);
        }
    }
}

u32 largest(std::span<const u32> values) {
    u32 largest = 0;
    for (const u32 value : values) largest = std::max(largest, value);
    return largest;
}

}  // namespace tavik::portable
