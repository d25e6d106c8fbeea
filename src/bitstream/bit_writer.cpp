// Invariant of a BitWriter: bit_count = 8 byte_pos + 8 - bits_left.
#include "bitstream/bit_writer.h"

#include <algorithm>

namespace tavik {

BitSink open_sink(BitOutput out) {
    const BitWriter &writer = out.writer;
    return {out.buffer + writer.byte_pos, writer.current_byte >> writer.bits_left, 8 - writer.bits_left};
}

void close_sink(BitOutput out, BitSink sink) {
    BitWriter &writer = out.writer;
    while (sink.count >= 8) {
        sink.count -= 8;
        *sink.next++ = static_cast<u8>(sink.gathered >> sink.count);
    }
    const auto byte_pos = static_cast<u32>(sink.next - out.buffer);
    writer.bit_count += 8 * (byte_pos - writer.byte_pos) + writer.bits_left - (8 - sink.count);
    writer.byte_pos = byte_pos;
    writer.bits_left = 8 - sink.count;
    writer.current_byte = static_cast<u32>(sink.gathered << writer.bits_left) & 0xFF;
}

void put_bits(BitOutput out, u32 value, u32 nbits) {
    BitSink sink = open_sink(out);
    for (; nbits > 32; nbits -= 32) sink.put(0, 32);
    sink.put(value, nbits);
    close_sink(out, sink);
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
        byte = static_cast<u8>(byte | (value >> nbits & ((1u << take) - 1)) << (room - take));
        bit_offset += take;
    }
}

}  // namespace tavik
