// Adjacent fields of a bitstream, appended as one.
#pragma once

#include "bitstream/bit_writer.h"

namespace tavik {

template <u32 Bits>
struct Field {
    u32 value;  // below 2^Bits
};

// Appends fields of fewer than 32 bits in all. Constant fields are combined at compile time.
template <u32... Bits>
void put_fields(BitOutput out, Field<Bits>... fields) {
    static_assert((Bits + ...) < 32);
    u32 value = 0;
    ((value = value << Bits | fields.value), ...);
    put_bits(out, value, (Bits + ...));
}

}  // namespace tavik
