// The C ABI: entry points and exported stage functions. Pointers become references and spans here, and only here;
// inside the library the stages call each other directly. The exported tables are defined in tables/.
#include "bitstream/bit_writer.h"
#include "bitstream/channel_stream.h"
#include "bitstream/frame.h"
#include "bitstream/headers.h"
#include "filterbank/block_switching.h"
#include "filterbank/fft.h"
#include "filterbank/filter_bank.h"
#include "filterbank/mdct.h"
#include "interface/init.h"
#include "interface/stream_control.h"
#include "quant/rate_loop.h"
#include "quant/scale_factors.h"
#include "tables/escape_sequence.h"
#include "tools/linear_prediction.h"
#include "tools/ms_stereo.h"
#include "tools/tns.h"

namespace {

using namespace tavik;

// A bit writer that a caller holds as four separate fields: gathered for one call and stored back after it.
class ScatteredBitWriter {
 public:
    ScatteredBitWriter(u32 &bits_left, u32 &current_byte, u32 &bit_count, u32 &byte_pos)
        : writer_{bit_count, byte_pos, current_byte, bits_left},
          bits_left_(bits_left),
          current_byte_(current_byte),
          bit_count_(bit_count),
          byte_pos_(byte_pos) {}
    ScatteredBitWriter(const ScatteredBitWriter &) = delete;
    ScatteredBitWriter &operator=(const ScatteredBitWriter &) = delete;
    ~ScatteredBitWriter() {
        bit_count_ = writer_.bit_count;
        byte_pos_ = writer_.byte_pos;
        current_byte_ = writer_.current_byte;
        bits_left_ = writer_.bits_left;
    }

    BitOutput output(uint8_t *buffer) { return {buffer, writer_}; }

 private:
    BitWriter writer_;
    u32 &bits_left_;
    u32 &current_byte_;
    u32 &bit_count_;
    u32 &byte_pos_;
};

FrameData frame_data(const i32 *spectrum, const u32 *pow34_spectrum, i32 *quantized) {
    return {spectrum, pow34_spectrum, std::span<i32, frame_length>(quantized, frame_length), nullptr};
}

// The bits that `write` appends to an output.
template <typename Write>
u32 appended_bits(BitOutput out, Write write) {
    const u32 start = out.writer.bit_count;
    write(out);
    return out.writer.bit_count - start;
}

using CodebookBytes = std::array<u8, band_array_size>;

// The library stores a codebook number in a byte, callers in a word.
CodebookBytes narrow_codebooks(const u32 *codebooks) {
    CodebookBytes bytes;
    for (u32 i = 0; i < band_array_size; ++i) bytes[i] = static_cast<u8>(codebooks[i]);
    return bytes;
}

}  // namespace

extern "C" {

uint32_t TAVIK_get_version(void) { return TAVIK_VERSION; }

uint32_t TAVIK_SampleRateIndex(uint32_t sample_rate) { return sample_rate_index(sample_rate); }

int32_t TAVIK_Init(EncoderContext *context, const EncoderConfig *config) {
    if (context == nullptr) return result_error;
    context->status = config != nullptr ? initialise(state_of(*context), *config) : TAVIK_ERR_NULL_POINTER;
    return context->status == TAVIK_OK ? 0 : result_error;
}

int32_t TAVIK_Encode(EncoderContext *context, const int16_t *pcm, uint32_t *sample_count, uint8_t *output,
                     uint32_t *output_bytes) {
    if (context == nullptr) return result_error;
    if (pcm == nullptr || sample_count == nullptr || output == nullptr || output_bytes == nullptr) {
        context->status = TAVIK_ERR_NULL_POINTER;
        return result_error;
    }
    return encode(state_of(*context), pcm, *sample_count, output, *output_bytes);
}

void TAVIK_ZOLF_srfft(int32_t *re, int32_t *im, int32_t n) {
    if (n != 512 && n != 64) return;
    const auto size = static_cast<std::size_t>(n);
    fft(std::span<i32>(re, size), std::span<i32>(im, size));
}

void TAVIK_MDCT_FAST(int32_t *buf, uint32_t n, int32_t *scratch) {
    const std::size_t size = n == 1024 ? 1024 : 128;
    mdct(std::span<i32>(buf, 2 * size), std::span<i32>(scratch, size));
}

void TAVIK_FilterBank(const int32_t *history, int32_t *out, int32_t window_sequence, int32_t *scratch, int32_t channel,
                      uint32_t shift) {
    if (window_sequence < 0 || window_sequence > 3) return;
    const i32 *x = channel == 0 ? history : history + history_length;
    filter_bank(std::span<const i32, history_length>(x, history_length),
                std::span<i32, history_length>(out, history_length), static_cast<WindowSequence>(window_sequence),
                std::span<i32, frame_length>(scratch, frame_length), shift);
}

void TAVIK_LowPass(int32_t *spectrum, uint32_t limit) { low_pass(Spectrum(spectrum, frame_length), limit); }

void TAVIK_CalcAttack(const int32_t *block, int32_t *peaks) {
    measure_peaks(std::span<const i32, frame_length>(block, frame_length), std::span<i32, subblocks>(peaks, subblocks));
}

uint32_t TAVIK_BlockSwitch(uint32_t sampling_rate_index, const int32_t *peaks, uint32_t *short_run_active,
                           uint32_t *attack_index, TavikAttackDetectorState *state) {
    return static_cast<u32>(decide_window(sampling_rate_index,
                                          std::span<const i32, 2 * subblocks>(peaks, 2 * subblocks), *short_run_active,
                                          *attack_index, *state));
}

void TAVIK_MSStereo(int32_t *spectrum, uint32_t sampling_rate_index, uint32_t *ms_used, int32_t *bits_target,
                    uint32_t *ms_mask_present, uint32_t max_sfb, uint32_t tns_data_present) {
    *ms_mask_present = static_cast<u32>(
        ms_stereo(Spectrum(spectrum, frame_length), Spectrum(spectrum + history_length, frame_length),
                  sampling_rate_index, std::span<u32, max_bands>(ms_used, max_bands),
                  std::span<i32, max_channels>(bits_target, max_channels), max_sfb, tns_data_present != 0));
}

void TAVIK_TemporalNoiseShaping(TavikTnsData *tns, int32_t *spectrum, int32_t sampling_rate_index, uint32_t band_count,
                                uint32_t coded_band_count) {
    temporal_noise_shaping(*tns, Spectrum(spectrum, frame_length), static_cast<u32>(sampling_rate_index), band_count,
                           coded_band_count);
}

void TAVIK_Autocorrelation(uint32_t n, int32_t start, const int32_t *spectrum, int64_t *r) {
    wide_autocorrelation(std::span<const i32>(spectrum + start, n), std::span<i64, tns_lags>(r, tns_lags));
}

int32_t TAVIK_q47exp4(int64_t x) { return q47_exponent(x); }

void TAVIK_PreQuant(TavikCodingBlock *block, uint32_t *pow34_out, const int32_t *spectrum, uint32_t *band_sf_offset_out,
                    uint32_t channel) {
    std::array<i32, max_bands> band_peaks;  // NOLINT(cppcoreguidelines-pro-type-member-init): output
    estimate_scale_factors(*block, Pow34(pow34_out, frame_length), ConstSpectrum(spectrum, frame_length),
                           BandArray(band_sf_offset_out, band_array_size), band_peaks, channel);
}

void TAVIK_Quantize(TavikCodingBlock *block, const int32_t *spectrum, uint32_t *global_gain,
                    const uint32_t *band_sf_offset, uint32_t *codebooks, int32_t *quantized,
                    const uint32_t *pow34_spectrum, uint32_t channel) {
    CodebookBytes bytes = narrow_codebooks(codebooks);
    *global_gain = run_rate_loop(
        *block,
        {ConstSpectrum(spectrum, frame_length), ConstPow34(pow34_spectrum, frame_length),
         ConstBandArray(band_sf_offset, band_array_size), bytes, std::span<i32, frame_length>(quantized, frame_length)},
        channel);
    for (u32 i = 0; i < band_array_size; ++i) codebooks[i] = bytes[i];
}

void TAVIK_ZOLF_PutBit(uint8_t *buffer, uint32_t *bits_left, uint32_t *current_byte, uint32_t *bit_count,
                       uint32_t *byte_pos, uint32_t value, int32_t nbits) {
    ScatteredBitWriter scattered(*bits_left, *current_byte, *bit_count, *byte_pos);
    put_bits(scattered.output(buffer), value, static_cast<u32>(nbits));
}

void TAVIK_ZOLF_PutBit_Offset(uint8_t *buffer, uint32_t value, int32_t nbits, uint32_t bit_offset) {
    put_bits_at(buffer, value, static_cast<u32>(nbits), bit_offset);
}

uint32_t TAVIK_ByteAlign(uint8_t *buffer, uint32_t *bits_left, uint32_t *current_byte, uint32_t *bit_count,
                         uint32_t *byte_pos) {
    ScatteredBitWriter scattered(*bits_left, *current_byte, *bit_count, *byte_pos);
    return byte_align(scattered.output(buffer));
}

void TAVIK_WriteADTSHeader(uint32_t sampling_frequency_index, uint32_t constant_rate, TavikAdtsHeader *adts_header,
                           uint8_t *buffer, BitWriter *writer, uint32_t channel_configuration) {
    write_adts_header({buffer, *writer}, *adts_header, sampling_frequency_index, channel_configuration,
                      constant_rate == 1);
}

uint32_t TAVIK_WriteADIFHeader(const TavikProgramConfig *program_config, const TavikAdifHeader *adif_header,
                               uint8_t *buffer, BitWriter *writer) {
    return appended_bits({buffer, *writer},
                         [&](BitOutput out) { write_adif_header(out, *adif_header, *program_config); });
}

uint32_t TAVIK_WritePCE(const TavikProgramConfig *program_config, uint8_t *buffer, BitWriter *writer) {
    return appended_bits({buffer, *writer}, [&](BitOutput out) { write_program_config(out, *program_config); });
}

uint32_t TAVIK_WriteICS(const TavikCodingBlock *block, uint32_t global_gain, const uint32_t *codebooks,
                        const uint32_t *band_sf_offset, const int32_t *quantized, const int32_t *spectrum,
                        uint8_t *buffer, BitWriter *writer, uint32_t scale_factor_grouping, uint32_t channel) {
    const CodebookBytes bytes = narrow_codebooks(codebooks);
    const CodedChannel coded{global_gain, bytes, ConstBandArray(band_sf_offset, band_array_size),
                             std::span<const i32, frame_length>(quantized, frame_length),
                             ConstSpectrum(spectrum, frame_length)};
    return appended_bits({buffer, *writer}, [&](BitOutput out) {
        write_channel_stream(out, *block, coded, scale_factor_grouping, channel);
    });
}

uint32_t TAVIK_WriteICSInfo(uint8_t *buffer, BitWriter *writer, uint32_t max_sfb, uint32_t window_sequence,
                            uint32_t scale_factor_grouping) {
    return appended_bits({buffer, *writer}, [&](BitOutput out) {
        write_ics_info(out, static_cast<WindowSequence>(window_sequence), max_sfb, scale_factor_grouping);
    });
}

uint32_t TAVIK_CalculateEscSequence(int32_t value, uint32_t *length) {
    const EscapeSequence escape = escape_sequence(magnitude(value));
    *length = escape.length;
    return escape.code;
}

uint32_t TAVIK_WriteBitstream(EncoderContext *context, const int32_t *spectrum, const uint32_t *pow34_spectrum,
                              uint8_t *buffer, int32_t *quantized) {
    return quantize_and_write_frame(state_of(*context), buffer, frame_data(spectrum, pow34_spectrum, quantized));
}

uint32_t TAVIK_WriteSCE(TavikCodingBlock *block, const int32_t *spectrum, const uint32_t *pow34_spectrum,
                        BitWriter *writer, uint32_t share, uint8_t *buffer, int32_t *quantized, uint32_t channel) {
    return appended_bits({buffer, *writer}, [&](BitOutput out) {
        quantize_and_write_sce(out, *block, frame_data(spectrum, pow34_spectrum, quantized), share, channel);
    });
}

uint32_t TAVIK_WriteCPE(TavikCodingBlock *block, const int32_t *spectrum, const uint32_t *pow34_spectrum,
                        BitWriter *writer, uint32_t share, uint8_t *buffer, int32_t *quantized) {
    return appended_bits({buffer, *writer}, [&](BitOutput out) {
        quantize_and_write_cpe(out, *block, frame_data(spectrum, pow34_spectrum, quantized), share);
    });
}

uint32_t TAVIK_WriteFIL(const EncoderContext *context, uint32_t bits_so_far, uint8_t *buffer, BitWriter *writer) {
    return appended_bits({buffer, *writer}, [&](BitOutput out) {
        write_fill(out, bits_so_far, constant_rate_frame_bits(state_of(*context).coding));
    });
}

}  // extern "C"
