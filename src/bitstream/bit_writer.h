// Bit writer: appends fields to a frame, most significant bit first.
#pragma once

#include "quant/fixed_point.h"
#include "tavik.h"

namespace tavik {

inline constexpr BitWriter fresh_bit_writer{0, 0, 0, 8};

// One frame's output: its buffer, which the caller made large enough, and the position in it. A byte is stored when it
// is complete; bit position p is bit 7 - p mod 8 of byte p / 8.
struct BitOutput {
    u8 *buffer;
    BitWriter &writer;
};

// Appends many fields in a row: bits gather in a 64-bit word and leave it 32 at a time. The output's position is that
// of the sink's start until close().
class BitSink {
 public:
    explicit BitSink(BitOutput out)
        : out_(out),
          next_(out.buffer + out.writer.byte_pos),
          gathered_(out.writer.current_byte >> out.writer.bits_left),
          count_(8 - out.writer.bits_left) {}
    BitSink(const BitSink &) = delete;
    BitSink &operator=(const BitSink &) = delete;

    // The low `nbits` <= 32 bits of value < 2^nbits.
    void put(u32 value, u32 nbits) {
        gathered_ = gathered_ << nbits | value;
        count_ += nbits;
        if (count_ >= 32) {
            count_ -= 32;
            store_word(static_cast<u32>(gathered_ >> count_));
        }
    }

    // Stores the complete bytes and moves the output's position to the sink's.
    void close();

 private:
    void store_word(u32 word) {
        for (u32 i = 0; i < 4; ++i) next_[i] = static_cast<u8>(word >> (24 - 8 * i));
        next_ += 4;
    }

    BitOutput out_;
    u8 *next_;
    u64 gathered_;  // the low count_ < 32 bits; above them old ones
    u32 count_;
};

// Appends the low `nbits` bits of value < 2^nbits; a run of zeros (value 0) may have any length, other fields up to 32.
void put_bits(BitOutput out, u32 value, u32 nbits);

// Appends zeros up to a multiple of 8 bits since the start of the buffer; returns their number.
u32 byte_align(BitOutput out);

// ORs the low `nbits` <= 32 bits of value into stored, zero bits from position bit_offset on.
void put_bits_at(u8 *buffer, u32 value, u32 nbits, u32 bit_offset);

}  // namespace tavik
