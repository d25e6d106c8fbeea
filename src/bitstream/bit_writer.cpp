// A field touches one byte per pass. Invariant: bit_count = 8 byte_pos + 8 - bits_left.
#include "bitstream/bit_writer.h"

#include <algorithm>

namespace tavik {
namespace {

// The `count` <= 8 bits of value above its lowest `below`; zeros where those lie beyond bit 31.
u32 bits_above(u32 value, u32 below, u32 count) {
    const u32 shifted = below < 32 ? value >> below : 0;
    return shifted & ((1u << count) - 1);
}

}  // namespace

void put_bits(BitOutput out, u32 value, u32 nbits) {
    BitWriter &writer = out.writer;
    writer.bit_count += nbits;
    while (nbits > 0) {
        const u32 take = std::min(writer.bits_left, nbits);
        nbits -= take;
        writer.bits_left -= take;
        writer.current_byte |= bits_above(value, nbits, take) << writer.bits_left;
        if (writer.bits_left == 0) {
            out.buffer[writer.byte_pos++] = static_cast<u8>(writer.current_byte);
            writer.current_byte = 0;
            writer.bits_left = 8;
        }
    }
}

u32 byte_align(BitOutput out) {
    const u32 padding = -out.writer.bit_count % 8;
    put_bits(out, 0, padding);
    return padding;
}

void put_bits_at(u8 *buffer, u32 value, u32 nbits, u32 bit_offset) {
    while (nbits > 0) {
        const u32 room = 8 - bit_offset % 8;
        const u32 take = std::min(room, nbits);
        nbits -= take;
        u8 &byte = buffer[bit_offset / 8];
        byte = static_cast<u8>(byte | bits_above(value, nbits, take) << (room - take));
        bit_offset += take;
    }
}

}  // namespace tavik
