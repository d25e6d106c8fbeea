// The choice between the twins of a kernel. A kernel is a hot loop with one contract and up to two versions: the
// readable one in namespace portable, which defines the result, and a fast one in namespace neon that gives the same
// bits. Stages call kernels::name(); what that means is settled at compile time.
#pragma once

namespace tavik {

namespace portable {}

#if defined(__aarch64__)
namespace neon {}
// The fast twin, compared with the portable one at every call.
namespace checked {}
#if defined(TAVIK_CHECK_KERNELS)
namespace kernels = checked;

// Stops the program where the twins of a kernel differ.
inline void require_equal(bool equal) {
    if (!equal) __builtin_trap();
}
#else
namespace kernels = neon;
#endif
#else
namespace kernels = portable;
#endif

}  // namespace tavik
