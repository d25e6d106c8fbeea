// Channel elements and the frame around them. Quantization is part of writing: side information is deducted from a
// channel's target, the channel is quantized to fit the rest, and written, before the next channel is quantized.
#pragma once

#include "bitstream/bit_writer.h"
#include "common/encoder_context.h"

namespace tavik {

// Start of channel 0's arrays; channel 1's follow. `quantized` is scratch shared by the channels.
struct FrameData {
    const i32 *spectrum;  // 2048 per channel
    const u32 *pow34;     // 1024 per channel
    std::span<i32, frame_length> quantized;
    const i32 *band_peaks = nullptr;  // max_bands per channel: largest 3/4 power of each band; or nullptr
};

// One whole frame: header, raw_data_block, byte alignment, ADTS frame length. Returns its bits, a multiple of 8.
u32 quantize_and_write_frame(EncoderState &state, u8 *buffer, const FrameData &data);

// single_channel_element of a channel, whose number is also the tag, without the element identifier. `overhead_bits`:
// deducted from the channel's target for headers and fixed syntax.
void quantize_and_write_sce(BitOutput out, CodingBlock &block, const FrameData &data, u32 overhead_bits, u32 channel);

// channel_pair_element of channels 0 and 1, without the element identifier. `overhead_bits`: deducted from each target.
void quantize_and_write_cpe(BitOutput out, CodingBlock &block, const FrameData &data, u32 overhead_bits);

// Fill elements that bring a constant-rate frame of `bits_so_far` bits to its mean size of `target_bits`, END and byte
// alignment (3 to 10 bits) still to come; nothing when the frame is that long already.
void write_fill(BitOutput out, u32 bits_so_far, u32 target_bits);

// Mean size of a constant-rate frame.
u32 constant_rate_frame_bits(const CodingBlock &block);

}  // namespace tavik
