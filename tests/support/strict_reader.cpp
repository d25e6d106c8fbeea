#include "support/strict_reader.h"

#include <cstdlib>
#include <utility>

#include "support/standard_tables.h"

namespace tavik_test {
namespace {

// Values of id_syn_ele.
constexpr unsigned program_config_element = 5;
constexpr unsigned fill_element = 6;
constexpr unsigned end_element = 7;

constexpr unsigned low_complexity_profile = 1;
constexpr unsigned program_config_tag = 5;
constexpr unsigned input_buffer_bits = 6144;  // of a decoder, per channel
constexpr int scale_factor_difference_offset = 60;
constexpr unsigned max_tns_order = 12;
constexpr int escape_value = 16;            // only codebook 11 has it: the magnitude follows in an escape sequence
constexpr unsigned max_escape_length = 12;  // bits after the leading one of the largest magnitude, 8191

// A channel element as one number: "is a pair", then its tag in 4 bits. The first is also the value of id_syn_ele.
constexpr unsigned channel_pair = 1u << 4;

std::vector<unsigned> channel_elements(unsigned channel_mode) {
    if (channel_mode == TAVIK_MODE_STEREO) return {channel_pair};
    return channel_mode == TAVIK_MODE_MONO ? std::vector<unsigned>{0} : std::vector<unsigned>{0, 1};
}

class FrameReader : private BitReader {
 public:
    FrameReader(std::span<const std::uint8_t> bytes, const StreamFormat &format) : BitReader(bytes), format_(format) {}

    Frame read_all(bool first_frame) {
        if (config_.header_type == TAVIK_HEADER_ADTS) frame_.adts = read_adts_header();
        if (config_.header_type == TAVIK_HEADER_ADIF && first_frame) {
            read_adif_header();
            frame_.adif_header_bytes = position() / 8;
        }
        read_raw_data_block();
        require(bits_left() == 0, "bytes left over after the block");
        return std::move(frame_);
    }

 private:
    void read_byte_alignment() { expect(static_cast<unsigned>(bits_left() % 8), 0, "byte alignment"); }

    // ---- Headers ----

    AdtsHeader read_adts_header() {
        const std::size_t frame_length = bits_left() / 8;
        AdtsHeader header{};
        expect(12 + 1 + 2 + 1, 0xfff9, "syncword, ID, layer or protection_absent");
        expect(2, low_complexity_profile, "profile");
        expect(4, format_.sampling_frequency_index, "sampling_frequency_index");
        expect(1, 0, "private_bit");
        expect(3, config_.channel_mode == TAVIK_MODE_TWO_MONO ? 0 : channels_, "channel_configuration");
        expect(1, config_.original_copy, "original_copy");
        expect(1, config_.home, "home");
        header.copyright_identification_bit = read(1);
        header.copyright_identification_start = read(1);
        expect(13, frame_length, "aac_frame_length");
        const unsigned fullness = read(11);
        require(is_constant_ ? fullness <= input_buffer_bits / 32 : fullness == 0x7ff, "adts_buffer_fullness");
        expect(2, 0, "number_of_raw_data_blocks_in_frame");
        return header;
    }

    void read_adif_header() {
        expect(32, 0x41444946, "adif_id");
        expect(1, config_.copyright_id_present, "copyright_id_present");
        for (unsigned i = 0; i < 9 * config_.copyright_id_present; ++i)
            expect(8, config_.copyright_id[i], "copyright_id");
        expect(1, config_.original_copy, "original_copy");
        expect(1, config_.home, "home");
        expect(1, is_constant_ ? 0 : 1, "bitstream_type");
        const unsigned highest_rate = TAVIK_MAX_BIT_RATE_FACTOR * config_.sample_rate;
        expect(23, channels_ * (is_constant_ ? config_.bit_rate : highest_rate), "bitrate");
        expect(4, 0, "num_program_config_elements");
        require(!is_constant_ || read(20) <= channels_ * input_buffer_bits, "adif_buffer_fullness");
        read_program_config();
    }

    void read_program_config() {
        expect(4, program_config_tag, "element_instance_tag");
        expect(2, low_complexity_profile, "object_type");
        expect(4, format_.sampling_frequency_index, "sampling_frequency_index");
        expect(4, elements_.size(), "num_front_channel_elements");
        expect(4 + 4 + 2 + 3 + 4, 0, "number of side, back, LFE, associated data and coupling elements");
        expect(3, 0, "mixdown flags");
        for (const unsigned element : elements_) expect(1 + 4, element, "front channel element");
        read_byte_alignment();
        expect(8, 0, "comment_field_bytes");
    }

    // ---- raw_data_block ----

    void read_raw_data_block() {
        if (config_.header_type == TAVIK_HEADER_ADTS && config_.channel_mode == TAVIK_MODE_TWO_MONO) {
            expect(3, program_config_element, "program config element missing");
            read_program_config();
        }
        for (const unsigned element : elements_) {
            expect(3 + 4, element, "unexpected element or tag");
            read_channel_element(element == channel_pair);
        }
        std::size_t start = position();
        unsigned id = read(3);
        for (; id == fill_element; id = read(3)) {
            unsigned bytes = read(4);
            if (bytes == 15) bytes += read(8) - 1;
            for (; bytes > 0; --bytes) expect(8, 0, "fill payload");
            frame_.fill_bits += position() - start;
            start = position();
        }
        require(id == end_element, "unexpected element behind the channels");
        read_byte_alignment();
    }

    void read_channel_element(bool is_pair) {
        std::optional<IcsInfo> common_info;
        if (is_pair && read(1) == 1) {
            common_info = read_ics_info();
            const unsigned ms_mask_present = read(2);
            require(ms_mask_present != 3, "ms_mask_present is reserved");
            const std::size_t flags = common_info->window_group_length.size() * common_info->max_sfb;
            for (std::size_t i = 0; ms_mask_present == 1 && i < flags; ++i) read(1);
        }
        for (int i = 0; i < (is_pair ? 2 : 1); ++i) frame_.channels.push_back(read_channel_stream(common_info));
    }

    // ---- individual_channel_stream ----

    const std::vector<unsigned> &bands(const IcsInfo &info) const {
        return standard_tables().bands(format_.sampling_frequency_index, info.is_short());
    }

    IcsInfo read_ics_info() {
        IcsInfo info{};
        expect(1, 0, "ics_reserved_bit");
        info.window_sequence = read(2);
        expect(1, 0, "window_shape");
        info.max_sfb = read(info.is_short() ? 4 : 6);
        require(info.max_sfb < bands(info).size(), "max_sfb exceeds the bands");
        info.window_group_length = {1};
        if (!info.is_short()) expect(1, 0, "predictor_data_present");
        for (int window = 1; window < (info.is_short() ? 8 : 1); ++window) {
            const bool joins_window_before = read(1) == 1;  // a bit of scale_factor_grouping
            if (!joins_window_before) info.window_group_length.push_back(0);
            ++info.window_group_length.back();
        }
        return info;
    }

    ChannelStream read_channel_stream(const std::optional<IcsInfo> &common_info) {
        ChannelStream stream{};
        stream.global_gain = read(8);
        stream.ics = common_info ? *common_info : read_ics_info();
        stream.codebook.resize(stream.ics.window_group_length.size());
        std::size_t start = position();
        for (auto &codebooks : stream.codebook) codebooks = read_sections(stream.ics);
        stream.section_bits = position() - start;
        start = position();
        read_scale_factor_data(stream);
        stream.scale_factor_bits = position() - start;
        expect(1, 0, "pulse_data_present");
        stream.has_tns = read(1) == 1;
        if (stream.has_tns) stream.tns_coef = read_tns_data(stream.ics);
        expect(1, 0, "gain_control_data_present");
        start = position();
        read_spectral_data(stream);
        stream.spectral_bits = position() - start;
        return stream;
    }

    // The codebook of each band of one group. The last field of a section's length is the first that is not all ones.
    std::vector<unsigned> read_sections(const IcsInfo &info) {
        const unsigned field_bits = info.is_short() ? 3 : 5;
        const unsigned all_ones = (1u << field_bits) - 1;
        std::vector<unsigned> codebooks;
        while (codebooks.size() < info.max_sfb) {
            const unsigned codebook = read(4);
            require(codebook <= escape_codebook, "codebook that must not be used");
            require(codebooks.empty() || codebooks.back() != codebook, "adjacent sections of the same codebook");
            unsigned length = 0;
            for (unsigned field = all_ones; field == all_ones; length += field) field = read(field_bits);
            require(length > 0 && length <= info.max_sfb - codebooks.size(), "section empty or beyond max_sfb");
            codebooks.insert(codebooks.end(), length, codebook);
        }
        return codebooks;
    }

    void read_scale_factor_data(ChannelStream &stream) {
        int last = static_cast<int>(stream.global_gain);
        for (const auto &codebooks : stream.codebook) {
            auto &factors = stream.scale_factor.emplace_back(codebooks.size());
            for (std::size_t band = 0; band < codebooks.size(); ++band) {
                if (codebooks[band] == 0) continue;
                const unsigned index = standard_tables().code(scale_factor_codebook).decode(*this);
                last += static_cast<int>(index) - scale_factor_difference_offset;
                require(last >= 0 && last <= 255, "scale factor out of range");
                factors[band] = last;
            }
        }
    }

    std::vector<int> read_tns_data(const IcsInfo &info) {
        require(!info.is_short(), "TNS on short windows");
        expect(2, 1, "n_filt");
        const unsigned coef_res = read(1);
        require(read(6) < bands(info).size(), "TNS length exceeds the bands");
        const unsigned order = read(5);
        require(order <= max_tns_order, "TNS order is too high");
        if (order == 0) return {};
        read(1);                                            // direction
        const unsigned coef_bits = 3 + coef_res - read(1);  // coef_compress
        std::vector<int> coef(order);
        for (int &value : coef) {
            value = static_cast<int>(read(coef_bits));
            if (value >> (coef_bits - 1) != 0) value -= 1 << coef_bits;
        }
        return coef;
    }

    // ---- spectral_data ----

    void read_spectral_data(ChannelStream &stream) {
        stream.quantized.assign(TAVIK_FRAME_LENGTH, 0);
        const std::vector<unsigned> &limits = bands(stream.ics);
        auto lines = std::span(stream.quantized);
        for (std::size_t group = 0; group < stream.codebook.size(); ++group) {
            const std::size_t windows = stream.ics.window_group_length[group];
            for (std::size_t band = 0; band < stream.codebook[group].size(); ++band) {
                const auto first = windows * limits[band];
                read_band(lines.subspan(first, windows * limits[band + 1] - first), stream.codebook[group][band]);
            }
            if (stream.ics.is_short()) lines = lines.subspan(windows * limits.back());
        }
    }

    void read_band(std::span<int> lines, unsigned codebook) {
        if (codebook == 0) return;
        const SpectralCodebook book = spectral_codebook(codebook);
        const HuffmanCode &code = standard_tables().code(codebook);
        for (; !lines.empty(); lines = lines.subspan(book.dimension)) {
            unsigned index = code.decode(*this);
            for (std::size_t i = book.dimension; i-- > 0; index /= book.modulus) {
                lines[i] = static_cast<int>(index % book.modulus) + book.lowest;
            }
            for (int &value : lines.first(book.dimension)) {
                if (book.lowest == 0 && value != 0 && read(1) == 1) value = -value;
            }
            for (int &value : lines.first(book.dimension)) {
                if (value == escape_value) value = read_escape();
                if (value == -escape_value) value = -read_escape();
            }
        }
    }

    // The number of leading ones tells the magnitude's highest bit, so that no magnitude has two escape sequences.
    int read_escape() {
        unsigned length = 4;
        while (read(1) == 1) ++length;
        require(length <= max_escape_length, "escape sequence of a magnitude above 8191");
        return static_cast<int>((1u << length) + read(length));
    }

    const StreamFormat &format_;
    const EncoderConfig &config_ = format_.config;
    const bool is_constant_ = config_.constant_rate == 1;
    const unsigned channels_ = config_.channel_mode == TAVIK_MODE_MONO ? 1 : 2;
    const std::vector<unsigned> elements_ = channel_elements(config_.channel_mode);
    Frame frame_{};
};

}  // namespace

Frame read_frame(std::span<const std::uint8_t> bytes, const StreamFormat &format, bool first_frame) {
    return FrameReader(bytes, format).read_all(first_frame);
}

}  // namespace tavik_test
