// Adjacent fields of a bitstream, appended as one.
#pragma once

#include "bitstream/bit_writer.h"

namespace tavik {

struct Field {
    u32 value;
    u32 bits;
};

// Appends fields of fewer than 32 bits in all. The compiler works out what is constant in them.
template <typename... Fields>
void put_fields(BitOutput out, Fields... fields) {
    u32 value = 0;
    u32 bits = 0;
    ((value = value << fields.bits | fields.value, bits += fields.bits), ...);
    put_bits(out, value, bits);
}

}  // namespace tavik
