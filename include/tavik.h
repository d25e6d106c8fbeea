/**
 * @file
 * Tavik: a fixed-point MPEG AAC Low Complexity encoder (ISO/IEC 14496-3, ISO/IEC 13818-7).
 *
 * Life of a stream:
 *
 *     EncoderContext *context = ...;                   // sizeof(EncoderContext) bytes, owned by the host
 *     TAVIK_Init(context, &config);                    // 0, or -1 with the reason in context->status
 *     for each frame of 1024 samples per channel:
 *         uint32_t samples = 1024, bytes;
 *         TAVIK_Encode(context, pcm, &samples, frame, &bytes);
 *         write out `bytes` bytes of `frame`
 *     do {                                             // end of input: deliver what is still inside
 *         samples = 0;
 *         TAVIK_Encode(context, pcm, &samples, frame, &bytes);
 *         write out `bytes` bytes of `frame`
 *     } while (context->status != TAVIK_STATUS_END_OF_STREAM);
 *
 * The library allocates nothing, does no input or output, starts no thread, keeps no state outside the context and
 * uses no floating point. Distinct contexts may be used by distinct threads at once; one context by one thread at a
 * time. The encoded bytes are one exact function of configuration and samples, whatever machine and compiler.
 *
 * This header is valid C11 and C++20.
 */
#ifndef TAVIK_H
#define TAVIK_H

#include <stdint.h>
#ifndef __cplusplus
#include <stdalign.h>
#endif

/** @def TAVIK_API
 * Marks what the shared library exports. */
#if defined(__GNUC__)
#define TAVIK_API __attribute__((visibility("default")))
#else
#define TAVIK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Version ------------------------------------------------------------------------------------------------- */
/** @defgroup version Version
 * @{ */

#define TAVIK_VERSION_MAJOR 3 /**< The release. Counts changes that hosts have to follow. */
#define TAVIK_VERSION_MINOR 0 /**< Counts additions that leave hosts as they are. */
#define TAVIK_VERSION_PATCH 0 /**< Counts corrections. */

/** The binary interface, counted on its own: the number of the shared library's soname. It goes up when programs linked
 * to an older library would no longer run with the new one. */
#define TAVIK_ABI_VERSION 1

/** One hexadecimal digit of major version, three of minor version, four of patch level. */
#define TAVIK_VERSION \
    (((uint32_t)TAVIK_VERSION_MAJOR << 28) | ((uint32_t)TAVIK_VERSION_MINOR << 16) | (uint32_t)TAVIK_VERSION_PATCH)

/** @} */

/* ---- Sizes --------------------------------------------------------------------------------------------------- */
/** @defgroup sizes Sizes
 * @{ */

/** Samples per channel and frame. */
#define TAVIK_FRAME_LENGTH 1024

/** Bytes of one encoder context: part of the ABI, because hosts allocate that amount. */
#define TAVIK_CONTEXT_BYTES 55968

/** Byte offset, inside a context, of the coding block that some stage functions take as their first argument. */
#define TAVIK_CODING_BLOCK_OFFSET 53304

/**
 * The largest frame that TAVIK_Encode can write, in bytes, headers and fill included: 768 per channel, for every valid
 * configuration and every input. Derivation: the bit targets of a frame's channels add up to at most available_bits,
 * which never exceeds buffer_bits = 6144 per channel (the standard's decoder input buffer per channel). Before the rate
 * loop runs, every bit of the frame that it does not count is deducted from those targets: stream header, element
 * identifiers and tags, ics_info, mid/side flags, TNS data, global gain, flags and END. The rate loop ends with a count
 * within the target, so that the frame keeps to the sum; 6144 bits are whole bytes, so that alignment adds nothing.
 * Where a target is out of reach, the channel is all zero and takes at most 39 bits (eight-short: three groups of one
 * section of 15 bands). That happens only where the side information uses up the target, at bit rates whose frames are
 * far below the limit. Fill elements pad to the mean frame size, at most 6144 bits per channel.
 *
 * For one configuration the same argument gives less. mean = (bit_rate x 1024 / sample_rate) / 8 bytes, both divisions
 * rounded down, x channels; framing and channel mode make no difference, because headers are paid from the targets:
 * - constant rate: mean, and that in every frame, unless a target is out of reach;
 * - variable rate: 1.44 x mean rounded up, or 768 per channel if that is less. A channel may borrow 20 per cent of its
 *   mean, 16 at a change of window and 8 with temporal noise shaping there; mid/side moves bits between the channels;
 * - out of reach: at most TAVIK_MAX_BYTES_OUT_OF_REACH.
 */
#define TAVIK_MAX_FRAME_BYTES_PER_CHANNEL 768

/** Room for a frame of any configuration. */
#define TAVIK_MAX_FRAME_BYTES (2 * TAVIK_MAX_FRAME_BYTES_PER_CHANNEL)

/**
 * The largest frame with a target out of reach, the first of an ADIF stream: 26 bytes of header with a copyright
 * identifier, below 100 bits of element, ics_info, mid/side flags and fixed fields (bit rates this low have no temporal
 * noise shaping), one channel that is all zero and one with the 148 bits that a second channel is left at least.
 */
#define TAVIK_MAX_BYTES_OUT_OF_REACH 64

/** @} */

/* ---- Configuration ------------------------------------------------------------------------------------------- */
/** @defgroup configuration Configuration
 * @{ */

/** Values of EncoderConfig.channel_mode. */
enum {
    TAVIK_MODE_MONO = 0,    /**< one channel: a single channel element */
    TAVIK_MODE_STEREO = 1,  /**< two channels: a channel pair element, mid/side where it pays */
    TAVIK_MODE_TWO_MONO = 2 /**< two independent channels: two single channel elements and a program config element */
};

/** Values of EncoderConfig.header_type. */
enum {
    TAVIK_HEADER_ADTS = 0, /**< a 7-byte ADTS header in front of every frame */
    TAVIK_HEADER_ADIF = 1, /**< one ADIF header in front of the first frame */
    TAVIK_HEADER_NONE = 2  /**< bare raw data blocks, for a container that describes the stream itself */
};

/** Lowest bit rate per channel, in bit/s. */
#define TAVIK_MIN_BIT_RATE 8000

/** The highest bit rate per channel is this times sample_rate: 6144 bits per frame. */
#define TAVIK_MAX_BIT_RATE_FACTOR 6

/**
 * Configuration of one stream: filled in by the host, read once by TAVIK_Init. Every field is checked as an unsigned
 * value; the status that a bad one gives stands in brackets.
 */
typedef struct EncoderConfig {
    uint32_t channel_mode;         /**< one of TAVIK_MODE_... [TAVIK_ERR_CHANNEL_MODE] */
    uint32_t sample_rate;          /**< Hz: 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025 or 8000
                                      [TAVIK_ERR_SAMPLE_RATE] */
    uint32_t bit_rate;             /**< bit/s per channel, 8000 to 6 x sample_rate [TAVIK_ERR_BIT_RATE] */
    uint32_t header_type;          /**< one of TAVIK_HEADER_... [TAVIK_ERR_HEADER_TYPE] */
    uint32_t constant_rate;        /**< 1: every frame padded to the mean size; 0: variable frame sizes with a bit
                                      reservoir [TAVIK_ERR_CONSTANT_RATE] */
    uint32_t emit_priming_frame;   /**< 1: also emit the frame whose window covers the silence before the input: one
                                      more frame, and the decoded signal comes 1024 samples later. 0: as many frames
                                      as input frames (2 for a single one), no delay; the first 1024 decoded samples
                                      then lack their overlap partner and are not exact [TAVIK_ERR_PRIMING_FRAME] */
    uint32_t tns_disable;          /**< 1: temporal noise shaping is never applied [TAVIK_ERR_TNS_DISABLE] */
    uint32_t home;                 /**< value of the home bit of ADTS and ADIF headers [TAVIK_ERR_HOME] */
    uint32_t original_copy;        /**< value of their original_copy bit [TAVIK_ERR_ORIGINAL_COPY] */
    uint32_t copyright_id_present; /**< 1: copyright_id is carried, in the ADIF header or one bit per ADTS frame
                                      [TAVIK_ERR_COPYRIGHT_ID_PRESENT] */
    uint8_t copyright_id[9];       /**< 72-bit copyright identifier, most significant byte first */
} EncoderConfig;

/** @} */

/* ---- Status -------------------------------------------------------------------------------------------------- */
/** @defgroup status Status
 * @{ */

/** Values of EncoderContext.status: negative for errors, positive for the state of the stream. */
enum {
    TAVIK_OK = 0,                          /**< success; from TAVIK_Encode: a full frame taken, a frame delivered */
    TAVIK_ERR_CHANNEL_MODE = -100,         /**< channel_mode above 2 */
    TAVIK_ERR_SAMPLE_RATE = -101,          /**< sample_rate not one of the nine */
    TAVIK_ERR_BIT_RATE = -102,             /**< bit_rate outside 8000 ... 6 x sample_rate */
    TAVIK_ERR_HEADER_TYPE = -104,          /**< header_type above 2 */
    TAVIK_ERR_CONSTANT_RATE = -105,        /**< constant_rate above 1 */
    TAVIK_ERR_HOME = -107,                 /**< home above 1 */
    TAVIK_ERR_ORIGINAL_COPY = -108,        /**< original_copy above 1 */
    TAVIK_ERR_COPYRIGHT_ID_PRESENT = -112, /**< copyright_id_present above 1 */
    TAVIK_ERR_PRIMING_FRAME = -114,        /**< emit_priming_frame above 1 */
    TAVIK_ERR_TNS_DISABLE = -115,          /**< tns_disable above 1 */
    TAVIK_ERR_NULL_POINTER = -116,         /**< a required pointer is absent */
    TAVIK_STATUS_END_OF_STREAM = 100,      /**< the last frame is delivered with this call, or was before */
    TAVIK_STATUS_PARTIAL_FRAME = 101,      /**< fewer than 1024 samples were given and completed with zeros */
    TAVIK_STATUS_NO_OUTPUT = 102,          /**< the delay line is still filling: no bytes this call */
    TAVIK_STATUS_FLUSHING = 103            /**< end of input accepted; more frames remain to be delivered */
};

/** @} */

/* ---- Encoder context ----------------------------------------------------------------------------------------- */
/** @defgroup context Encoder context
 * @{ */

/**
 * One encoder instance. The host owns the memory, the library the contents. From TAVIK_Init on a context must stay at
 * its address: it holds pointers into itself. There is no release call.
 */
typedef struct EncoderContext {
    alignas(8) int32_t status;               /**< status code of the latest call; the only member that a host reads */
    uint8_t opaque[TAVIK_CONTEXT_BYTES - 4]; /**< the library's */
} EncoderContext;

/** @} */

/* ---- Entry points -------------------------------------------------------------------------------------------- */
/** @defgroup entry_points Entry points
 * @{ */

/** @return TAVIK_VERSION of the library in use: 0x30000000. */
TAVIK_API uint32_t TAVIK_get_version(void);

/**
 * @param sample_rate  one of the nine sampling rates in Hz
 * @return its sampling_frequency_index in the standard, 3 for 48000 Hz to 11 for 8000 Hz; 15 for any other rate
 */
TAVIK_API uint32_t TAVIK_SampleRateIndex(uint32_t sample_rate);

/**
 * Checks the configuration and makes a context ready for the first frame of a new stream; on a used context it starts
 * afresh. After a failure the context must be initialised again before use.
 *
 * @param context  the host's memory, whatever it holds
 * @param config   is copied: the host need not keep it
 * @return 0, or -1 with the reason in context->status: TAVIK_ERR_NULL_POINTER for an absent config (the context is
 *     otherwise untouched), else the code of the first bad field in the order channel_mode, sample_rate, bit_rate,
 *     header_type, constant_rate, emit_priming_frame, tns_disable, home, original_copy, copyright_id_present. An absent
 *     context gives -1.
 */
TAVIK_API int32_t TAVIK_Init(EncoderContext *context, const EncoderConfig *config);

/**
 * Takes in one frame of input and delivers at most one encoded frame. The encoder runs one frame behind its input.
 *
 * @param context       initialised by TAVIK_Init
 * @param pcm           signed 16-bit samples, interleaved (channel 0 first) when there are two channels; sample_count
 *                      per channel are read; must be given, though it is not read, when sample_count is 0
 * @param sample_count  in: samples per channel, 0 = end of input; a count above 1024 means 1024, one below completes
 *                      the frame with zeros. out: 1024 when 1024 or more were offered, else unchanged
 * @param output        receives the frame; room for TAVIK_MAX_FRAME_BYTES_PER_CHANNEL bytes per channel
 * @param output_bytes  out: bytes written, possibly 0; may be the same variable as sample_count, which then ends as
 *                      this
 * @return 0 when a full input frame was taken and a frame delivered; -1 for an absent pointer (nothing changes but the
 *     status, TAVIK_ERR_NULL_POINTER, where there is a context); 1 otherwise, and context->status tells which:
 *     TAVIK_STATUS_NO_OUTPUT, TAVIK_STATUS_PARTIAL_FRAME, TAVIK_STATUS_FLUSHING or TAVIK_STATUS_END_OF_STREAM. Bytes
 *     may come with any of the last three.
 */
TAVIK_API int32_t TAVIK_Encode(EncoderContext *context, const int16_t *pcm, uint32_t *sample_count, uint8_t *output,
                               uint32_t *output_bytes);

/** @} */

/* ---- Records of the stage functions -------------------------------------------------------------------------- */
/**
 * @defgroup stages Stage functions
 * The stages of the encoder, each callable on its own. Spectra have 1024 coefficients per channel in arrays of 2048;
 * window_sequence is the standard's: 0 ONLY_LONG, 1 LONG_START, 2 EIGHT_SHORT, 3 LONG_STOP; sampling_rate_index is
 * 0 (96 kHz) to 11 (8 kHz). Stages check nothing: callers keep the stated ranges.
 * @{
 */

/** The part of a context that starts at TAVIK_CODING_BLOCK_OFFSET. */
typedef struct TavikCodingBlock TavikCodingBlock;

/** Bit writer state: one frame's position in its output buffer. All zero but bits_left = 8 at the start of a frame. */
typedef struct BitWriter {
    uint32_t bit_count;    /**< bits appended since the start */
    uint32_t byte_pos;     /**< index of the byte that current_byte will be stored to: bit_count / 8 */
    uint32_t current_byte; /**< the byte being filled, from bit 7 down */
    uint32_t bits_left;    /**< free bits in current_byte, 1 to 8 */
} BitWriter;

/** Temporal noise shaping of one channel: one filter over a long window, upwards in frequency, 4-bit coefficients. */
typedef struct TavikTnsData {
    uint32_t tns_data_present; /**< 0 or 1 */
    uint32_t length;           /**< scale-factor bands covered, counted down from the window's last band */
    uint32_t order;            /**< 0 to 12 */
    uint32_t coef_compress;    /**< 1: every coefficient lies in -4 ... 3 and is sent in 3 bits */
    int32_t coef[12];          /**< quantized reflection coefficients, -8 ... 7; 0 from `order` on */
} TavikTnsData;

/** Attack detector memory of one channel: peaks of the previous call. */
typedef struct TavikAttackDetectorState {
    int32_t last_subblock_peak; /**< of its sub-block 7 */
    int32_t last_pair_peak;     /**< of its sub-blocks 6 and 7 */
    uint32_t unused[2];         /**< keep the size */
} TavikAttackDetectorState;

/** Values of a program_config_element with front elements only. */
typedef struct TavikProgramConfig {
    uint32_t sampling_frequency_index;     /**< 0 to 11 */
    uint32_t num_front_channel_elements;   /**< 1 or 2 */
    uint32_t front_element_is_cpe[16];     /**< per front element: 1 = channel pair, 0 = single channel */
    uint32_t front_element_tag_select[16]; /**< and its element_instance_tag */
} TavikProgramConfig;

/** Values of the ADIF header. */
typedef struct TavikAdifHeader {
    uint32_t copyright_id_present; /**< 1: the identifier is written */
    uint8_t copyright_id[9];       /**< most significant byte first */
    uint32_t original_copy;        /**< 0 or 1 */
    uint32_t home;                 /**< 0 or 1 */
    uint32_t bitstream_type;       /**< 0 = constant rate, 1 = variable rate */
    uint32_t bitrate;              /**< bit/s of all channels; the peak rate of a variable-rate stream */
    uint32_t adif_buffer_fullness; /**< bits; constant rate only */
} TavikAdifHeader;

/** Values of the ADTS header; the two copyright fields advance as headers are written. */
typedef struct TavikAdtsHeader {
    uint32_t original_copy;                  /**< 0 or 1 */
    uint32_t home;                           /**< 0 or 1 */
    const uint8_t *copyright_id;             /**< 9 bytes */
    uint32_t copyright_identification_start; /**< 1 until the first header of a stream with an identifier is written */
    uint32_t copyright_bits_left;            /**< identifier bits still to be sent, 72 ... 0 */
    uint32_t adts_buffer_fullness;           /**< units of 32 bits per channel; constant rate only */
} TavikAdtsHeader;

/* ---- Filter bank --------------------------------------------------------------------------------------------- */
/** @defgroup filter_bank Filter bank
 * @{ */

/**
 * Complex FFT in place, unnormalised: X[k] = sum x[i] e^(-j 2 pi i k / n), natural order. n is 512 or 64; any other n
 * leaves the data untouched. Caller's headroom: |re + im| < 2^29 at every stage.
 */
TAVIK_API void TAVIK_ZOLF_srfft(int32_t *re, int32_t *im, int32_t n);

/**
 * MDCT in place of the 2n windowed samples buf: buf[k] = 2^-9 sum buf[p] cos(2 pi / 2n (p + n0)(k + 1/2)), n0 =
 * (n + 1) / 2, k < n; buf[n ... 2n - 1] is left as it was. n is 1024; any other value works as 128. scratch: n entries.
 */
TAVIK_API void TAVIK_MDCT_FAST(int32_t *buf, uint32_t n, int32_t *scratch);

/**
 * Windows and transforms one channel's 2048 newest samples (16-bit values, older half first).
 *
 * @param history          start of channel 0's 2048 samples; any channel but 0 reads the 2048 after them
 * @param out              [0 ... 1023]: the spectrum, eight short spectra one after the other; [1024 ... 2047]: work
 *                         space
 * @param window_sequence  a value outside 0 ... 3 does nothing
 * @param scratch          1024 entries
 * @param channel          0 or 1
 * @param shift            extra left shift of the flat window segments, 0 in the encoder
 */
TAVIK_API void TAVIK_FilterBank(const int32_t *history, int32_t *out, int32_t window_sequence, int32_t *scratch,
                                int32_t channel, uint32_t shift);

/** Clears spectrum[limit ... 1023]; nothing from limit 1024 on. */
TAVIK_API void TAVIK_LowPass(int32_t *spectrum, uint32_t limit);

/** peaks[b] = largest magnitude of block[128 b ... 128 b + 127], b < 8; samples above -2^31. */
TAVIK_API void TAVIK_CalcAttack(const int32_t *block, int32_t *peaks);

/**
 * Decides a channel's window sequence.
 *
 * @param sampling_rate_index  of the stream
 * @param peaks                of 16 sub-blocks: 8 of the newer half of the block to be coded, 8 of the lookahead
 * @param short_run_active     in/out, kept per channel
 * @param attack_index         likewise: 0 ... 7, written when an attack is found
 * @param state                likewise
 * @return the window sequence
 */
TAVIK_API uint32_t TAVIK_BlockSwitch(uint32_t sampling_rate_index, const int32_t *peaks, uint32_t *short_run_active,
                                     uint32_t *attack_index, TavikAttackDetectorState *state);

/** @} */

/* ---- Spectral tools ------------------------------------------------------------------------------------------ */
/** @defgroup tools Spectral tools
 * @{ */

/**
 * Mid/side decision and transform of a channel pair with a common long window.
 *
 * @param spectrum             channel 0's; channel 1's follows 2048 entries later
 * @param sampling_rate_index  of the stream
 * @param ms_used              out: 52 flags
 * @param bits_target          in/out: the targets of both channels
 * @param ms_mask_present      out: 0, 1 or 2
 * @param max_sfb              coded bands
 * @param tns_data_present     of channel 0
 */
TAVIK_API void TAVIK_MSStereo(int32_t *spectrum, uint32_t sampling_rate_index, uint32_t *ms_used, int32_t *bits_target,
                              uint32_t *ms_mask_present, uint32_t max_sfb, uint32_t tns_data_present);

/**
 * Temporal noise shaping of one long-block spectrum, lines below 2^24, in place: fills `tns` and filters when the
 * prediction gain is at least 129/64, else touches neither. band_count: scale-factor bands of the rate;
 * coded_band_count: those that are coded.
 */
TAVIK_API void TAVIK_TemporalNoiseShaping(TavikTnsData *tns, int32_t *spectrum, int32_t sampling_rate_index,
                                          uint32_t band_count, uint32_t coded_band_count);

/** r[l] = sum over i < n - l of x[start + i] x[start + i + l], l = 0 ... 12, in 64 bits; 0 for a lag without terms. */
TAVIK_API void TAVIK_Autocorrelation(uint32_t n, int32_t start, const int32_t *spectrum, int64_t *r);

/** @} */

/* ---- Quantization -------------------------------------------------------------------------------------------- */
/** @defgroup quantization Quantization
 * @{ */

/** @return the shift that brings the highest set bit of |x| to bit 46: 46 - its index, -17 ... 46; 0 for x = 0. */
TAVIK_API int32_t TAVIK_q47exp4(int64_t x);

/**
 * Scale-factor estimation of one channel: the 3/4 powers of its coded coefficients (pow34_out, 1024), the offset of
 * each band (band_sf_offset_out, 3 groups x 52, values 0 ... 18) and, in the coding block, has_signal.
 */
TAVIK_API void TAVIK_PreQuant(TavikCodingBlock *block, uint32_t *pow34_out, const int32_t *spectrum,
                              uint32_t *band_sf_offset_out, uint32_t channel);

/**
 * Rate loop of one channel: searches common_sf (in/out, in the coding block) until the channel's section, scale-factor
 * and spectral data fit bits_target, or every value is quantized to zero. Leaves global_gain, the codebook of each
 * coded band (3 x 52, cleared by the caller) and the quantized values of the coded bands (of 1024): signed in bands of
 * codebooks 1, 2, 5 and 6, magnitudes (at most 8191) elsewhere.
 */
TAVIK_API void TAVIK_Quantize(TavikCodingBlock *block, const int32_t *spectrum, uint32_t *global_gain,
                              const uint32_t *band_sf_offset, uint32_t *codebooks, int32_t *quantized,
                              const uint32_t *pow34_spectrum, uint32_t channel);

/** @} */

/* ---- Bitstream ----------------------------------------------------------------------------------------------- */
/** @defgroup bitstream Bitstream
 * @{ */

/**
 * Appends the low nbits bits of value, most significant first; the four pointers are the fields of one BitWriter.
 * value < 2^nbits, nbits <= 32; for value 0 any nbits >= 0.
 */
TAVIK_API void TAVIK_ZOLF_PutBit(uint8_t *buffer, uint32_t *bits_left, uint32_t *current_byte, uint32_t *bit_count,
                                 uint32_t *byte_pos, uint32_t value, int32_t nbits);

/** ORs the low nbits (1 ... 32) bits of value into bytes already stored, from bit position bit_offset on. */
TAVIK_API void TAVIK_ZOLF_PutBit_Offset(uint8_t *buffer, uint32_t value, int32_t nbits, uint32_t bit_offset);

/** Appends zero bits up to the next byte boundary. @return their number, 0 ... 7 */
TAVIK_API uint32_t TAVIK_ByteAlign(uint8_t *buffer, uint32_t *bits_left, uint32_t *current_byte, uint32_t *bit_count,
                                   uint32_t *byte_pos);

/** Writes the 56 bits of an ADTS header, its aac_frame_length 0, and advances the copyright fields. */
TAVIK_API void TAVIK_WriteADTSHeader(uint32_t sampling_frequency_index, uint32_t constant_rate,
                                     TavikAdtsHeader *adts_header, uint8_t *buffer, BitWriter *writer,
                                     uint32_t channel_configuration);

/** Writes an ADIF header with one program config element. @return its bits */
TAVIK_API uint32_t TAVIK_WriteADIFHeader(const TavikProgramConfig *program_config, const TavikAdifHeader *adif_header,
                                         uint8_t *buffer, BitWriter *writer);

/** Writes a program_config_element without its element identifier. @return its bits */
TAVIK_API uint32_t TAVIK_WritePCE(const TavikProgramConfig *program_config, uint8_t *buffer, BitWriter *writer);

/** Writes an individual_channel_stream (without ics_info under a common window). @return its bits */
TAVIK_API uint32_t TAVIK_WriteICS(const TavikCodingBlock *block, uint32_t global_gain, const uint32_t *codebooks,
                                  const uint32_t *band_sf_offset, const int32_t *quantized, const int32_t *spectrum,
                                  uint8_t *buffer, BitWriter *writer, uint32_t scale_factor_grouping, uint32_t channel);

/** Writes ics_info. @return its bits, 15 for an eight-short block, else 11 */
TAVIK_API uint32_t TAVIK_WriteICSInfo(uint8_t *buffer, BitWriter *writer, uint32_t max_sfb, uint32_t window_sequence,
                                      uint32_t scale_factor_grouping);

/**
 * @param value   of magnitude 16 ... 8191
 * @param length  out: bits of the sequence, 5 ... 21
 * @return its escape sequence of codebook 11, right-aligned
 */
TAVIK_API uint32_t TAVIK_CalculateEscSequence(int32_t value, uint32_t *length);

/**
 * Writes one whole frame from prepared spectra (channel 1's 2048 coefficients and 1024 3/4 powers follow channel 0's);
 * quantized: scratch of 1024 entries.
 * @return its bits, a multiple of 8
 */
TAVIK_API uint32_t TAVIK_WriteBitstream(EncoderContext *context, const int32_t *spectrum,
                                        const uint32_t *pow34_spectrum, uint8_t *buffer, int32_t *quantized);

/**
 * Quantizes and writes a single channel element (of channel `channel`, also its tag), without the element identifier.
 * spectrum and pow34_spectrum start at channel 0. share: bits charged to the channel's target for headers and fixed
 * syntax.
 * @return the bits written
 */
TAVIK_API uint32_t TAVIK_WriteSCE(TavikCodingBlock *block, const int32_t *spectrum, const uint32_t *pow34_spectrum,
                                  BitWriter *writer, uint32_t share, uint8_t *buffer, int32_t *quantized,
                                  uint32_t channel);

/** The same for a channel pair element; `share` is charged to each channel. @return the bits written */
TAVIK_API uint32_t TAVIK_WriteCPE(TavikCodingBlock *block, const int32_t *spectrum, const uint32_t *pow34_spectrum,
                                  BitWriter *writer, uint32_t share, uint8_t *buffer, int32_t *quantized);

/** Pads a frame of bits_so_far bits (END still to come) to the mean size with fill elements. @return their bits */
TAVIK_API uint32_t TAVIK_WriteFIL(const EncoderContext *context, uint32_t bits_so_far, uint8_t *buffer,
                                  BitWriter *writer);

/** @} */
/** @} */

/* ---- Tables -------------------------------------------------------------------------------------------------- */
/** @defgroup tables Tables
 * @{ */

/** Scale-factor bands of long windows by sampling_rate_index: swb_offset_long_window, 0 behind the last value. */
TAVIK_API extern const uint32_t TAVIK_SwbOffsetLong[12][52];
TAVIK_API extern const uint32_t TAVIK_SwbOffsetShort[12][16]; /**< likewise swb_offset_short_window */
TAVIK_API extern const uint32_t TAVIK_NumSwbLongWindow[12];   /**< number of long bands */
TAVIK_API extern const uint32_t TAVIK_NumSwbShortWindow[12];  /**< number of short bands */

/** By the short window that holds the attack: lengths of window groups 0 to 2, number of groups, grouping bits. */
TAVIK_API extern const uint32_t TAVIK_scale_factor_grouping_table[8][5];

/** MDCT rotations of N = 2048 samples: pairs cos a, -sin a in Q27, a = 2 pi (k + 1/8) / N, k < N / 4. */
TAVIK_API extern const int32_t TAVIK_W2[1024];
TAVIK_API extern const int32_t TAVIK_W4[128]; /**< likewise of N = 256 samples */

/** Rising half of the long sine window, Q23. */
TAVIK_API extern const int32_t TAVIK_SLW[1024];
TAVIK_API extern const int32_t TAVIK_SSW[128]; /**< rising half of the short sine window, Q23 */

/** 4-bit TNS coefficient index of a reflection coefficient of magnitude a / 1024 that is not negative. */
TAVIK_API extern const int32_t TAVIK_asinf_index_p[1025];
TAVIK_API extern const int32_t TAVIK_asinf_index_m[1025]; /**< likewise of a negative one */

/** Reflection coefficient of the index i, Q23: sin(i pi / 15). */
TAVIK_API extern const int32_t TAVIK_sin_table_p[15];
TAVIK_API extern const int32_t TAVIK_sin_table_m[17]; /**< likewise of the index -i: -sin(i pi / 17) */

/** Quantizer gain 2^(-3 (i - 100) / 16) by gain index i: Q1 for i < 15, Q16 for i < 58, Q20 above. */
TAVIK_API extern const uint32_t TAVIK_ZOLF_ipow20[256];

/** Higher codebook of the pair that codes a band, by the band's largest quantized magnitude 0 ... 12. */
TAVIK_API extern const uint32_t TAVIK_codebook[13];

/**
 * @name Huffman codebooks
 * 1 to 11 and of the scale factors (12). The lengths of codebooks 3, 4, 7, 8, 9 and 10 include one sign bit per
 * non-zero value. Index: signed values (1, 2: 27 w + 9 x + 3 y + z + 40; 5, 6: 9 y + z + 40), magnitudes (3, 4:
 * 27 w + 9 x + 3 y + z; 7, 8: 8 y + z; 9, 10: 13 y + z; 11: 17 y + z, 16 for an escape), difference + 60 (12).
 * @{
 */
/** Lengths (names in 0) and codewords, right-aligned (names in 1). */
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff10[81], TAVIK_ZOLF_huff11[81];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff20[81], TAVIK_ZOLF_huff21[81];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff30[81], TAVIK_ZOLF_huff31[81];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff40[81], TAVIK_ZOLF_huff41[81];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff50[81], TAVIK_ZOLF_huff51[81];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff60[81], TAVIK_ZOLF_huff61[81];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff70[64], TAVIK_ZOLF_huff71[64];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff80[64], TAVIK_ZOLF_huff81[64];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff90[169], TAVIK_ZOLF_huff91[169];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff100[169], TAVIK_ZOLF_huff101[169];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff110[289], TAVIK_ZOLF_huff111[289];
TAVIK_API extern const uint32_t TAVIK_ZOLF_huff120[121], TAVIK_ZOLF_huff121[121];
/** @} */

/** @} */

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TAVIK_H */
