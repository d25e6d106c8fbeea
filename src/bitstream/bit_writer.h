// Bit writer: appends fields to a frame, most significant bit first.
#pragma once

#include "common/fixed_point.h"
#include "tavik.h"

namespace tavik {

inline constexpr BitWriter fresh_bit_writer{0, 0, 0, 8};

// One frame's output: a buffer of sufficient size and the position in it. A byte is stored when it is complete; bit
// position p is bit 7 - p mod 8 of byte p / 8.
struct BitOutput {
    u8 *buffer;
    BitWriter &writer;
};

// For many fields in a row: bits are gathered in a 64-bit word and stored 32 at a time. Where the functions that append
// to it are inlined, it stays in registers.
struct BitSink {
    u8 *next;      // where the gathered bits will be stored
    u64 gathered;  // the low `count` < 32 bits; above them bits already stored
    u32 count;

    // The low `nbits` <= 32 bits of value < 2^nbits.
    void put(u32 value, u32 nbits) {
        gathered = gathered << nbits | value;
        count += nbits;
        if ((count & 32) == 0) return;  // one bit to test, as it is below 64
        count -= 32;
        const auto word = static_cast<u32>(gathered >> count);
        for (u32 i = 0; i < 4; ++i) next[i] = static_cast<u8>(word >> (24 - 8 * i));
        next += 4;
    }
};

// open_sink: a sink that continues the output. close_sink: stores its complete bytes and sets the output's position to
// its end. Nothing else may be appended to the output in between.
BitSink open_sink(BitOutput out);
void close_sink(BitOutput out, BitSink sink);

// Appends the low `nbits` bits of value < 2^nbits; a run of zeros (value 0) may have any length, other fields up to 32.
void put_bits(BitOutput out, u32 value, u32 nbits);

// Appends zeros up to a multiple of 8 bits since the start of the buffer; returns their number.
u32 byte_align(BitOutput out);

// ORs the low `nbits` <= 32 bits of value into stored bits, which are 0, from position bit_offset on.
void put_bits_at(u8 *buffer, u32 value, u32 nbits, u32 bit_offset);

}  // namespace tavik
