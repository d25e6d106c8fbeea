#include "support/strict_reader.h"

#include <algorithm>
#include <string>
#include <utility>

#include "support/standard_tables.h"

namespace tavik_test {
namespace {

// Values of id_syn_ele.
enum ElementId : unsigned {
    single_channel_element = 0,
    channel_pair_element = 1,
    program_config_element = 5,
    fill_element = 6,
    end_element = 7
};

constexpr unsigned low_complexity_profile = 1;
constexpr std::size_t spectral_lines = 1024;
constexpr std::size_t short_window_lines = 128;
constexpr int scale_factor_difference_offset = 60;
constexpr int largest_scale_factor = 255;
constexpr unsigned max_tns_order = 12;
constexpr int escape_value = 16;            // in codebook 11: the magnitude follows in an escape sequence
constexpr unsigned max_escape_length = 12;  // bits after the leading one of the largest magnitude, 8191

std::vector<ChannelElement> expected_elements(ChannelMode mode) {
    switch (mode) {
        case ChannelMode::mono: return {{false, 0}};
        case ChannelMode::stereo: return {{true, 0}};
        case ChannelMode::two_mono: break;
    }
    return {{false, 0}, {false, 1}};
}

unsigned expected_channel_configuration(ChannelMode mode) {
    switch (mode) {
        case ChannelMode::mono: return 1;
        case ChannelMode::stereo: return 2;
        case ChannelMode::two_mono: break;
    }
    return 0;  // the program config element tells
}

class FrameReader {
 public:
    FrameReader(std::span<const std::uint8_t> bytes, const StreamFormat &format)
        : bytes_(bytes), bits_(bytes), format_(format), expected_elements_(expected_elements(format.channel_mode)) {}

    Frame read(bool first_frame) {
        if (format_.framing == Framing::adts) frame_.adts = read_adts_header();
        if (format_.framing == Framing::adif && first_frame) frame_.adif = read_adif_header();
        frame_.header_bits = static_cast<unsigned>(bits_.position());
        frame_.total_bits = bits_of([this] { read_raw_data_block(); });
        if (bits_.bits_left() != 0) bits_.fail("bytes left over after the block");
        return std::move(frame_);
    }

 private:
    // ---- Primitives ----

    void require(bool condition, const std::string &message) const {
        if (!condition) bits_.fail(message);
    }

    void read_exactly(unsigned count, std::uint32_t value, const char *field) {
        const std::uint32_t found = bits_.read(count);
        require(found == value, std::string(field) + " is " + std::to_string(found) + ", not " + std::to_string(value));
    }

    void read_byte_alignment() { read_exactly(static_cast<unsigned>(bits_.bits_left() % 8), 0, "byte alignment"); }

    template <typename Function>
    unsigned bits_of(Function function) {
        const std::size_t start = bits_.position();
        function();
        return static_cast<unsigned>(bits_.position() - start);
    }

    // ---- Headers ----

    void read_sampling_frequency_index() {
        read_exactly(4, format_.sampling_frequency_index, "sampling_frequency_index");
    }

    AdtsHeader read_adts_header() {
        AdtsHeader header{};
        read_exactly(12, 0xfff, "syncword");
        header.id = bits_.read(1);
        read_exactly(2, 0, "layer");
        read_exactly(1, 1, "protection_absent");
        read_exactly(2, low_complexity_profile, "profile");
        read_sampling_frequency_index();
        header.sampling_frequency_index = format_.sampling_frequency_index;
        read_exactly(1, 0, "private_bit");
        header.channel_configuration = expected_channel_configuration(format_.channel_mode);
        read_exactly(3, header.channel_configuration, "channel_configuration");
        header.original_copy = bits_.read(1);
        header.home = bits_.read(1);
        header.copyright_identification_bit = bits_.read(1);
        header.copyright_identification_start = bits_.read(1);
        header.frame_length = bits_.read(13);
        require(header.frame_length == bytes_.size(), "aac_frame_length differs from the frame's size");
        header.buffer_fullness = bits_.read(11);
        read_exactly(2, 0, "number_of_raw_data_blocks_in_frame");
        return header;
    }

    AdifHeader read_adif_header() {
        AdifHeader header{};
        read_exactly(32, 0x41444946, "adif_id");
        if (bits_.read(1) == 1) {
            header.copyright_id.emplace();
            for (std::uint8_t &byte : *header.copyright_id) byte = static_cast<std::uint8_t>(bits_.read(8));
        }
        header.original_copy = bits_.read(1);
        header.home = bits_.read(1);
        header.bitstream_type = bits_.read(1);
        header.bitrate = bits_.read(23);
        read_exactly(4, 0, "num_program_config_elements");
        if (header.bitstream_type == 0) header.buffer_fullness = bits_.read(20);
        header.program_config = read_program_config();
        return header;
    }

    ProgramConfig read_program_config() {
        ProgramConfig config{};
        config.tag = bits_.read(4);
        read_exactly(2, low_complexity_profile, "object_type");
        read_sampling_frequency_index();
        config.sampling_frequency_index = format_.sampling_frequency_index;
        const unsigned front_elements = bits_.read(4);
        read_exactly(4 + 4 + 2 + 3 + 4, 0, "number of side, back, LFE, associated data and coupling elements");
        read_exactly(3, 0, "mixdown flags");
        for (unsigned i = 0; i < front_elements; ++i) {
            const bool is_pair = bits_.read(1) == 1;
            config.front_elements.push_back({is_pair, bits_.read(4)});
        }
        require(config.front_elements == expected_elements_, "unexpected front channel elements");
        read_byte_alignment();
        read_exactly(8, 0, "comment_field_bytes");
        return config;
    }

    // ---- raw_data_block ----

    void read_raw_data_block() {
        for (unsigned id = bits_.read(3); id != end_element; id = bits_.read(3)) {
            switch (id) {
                case single_channel_element:
                case channel_pair_element: read_channel_element(id == channel_pair_element); break;
                case program_config_element: read_program_config_element(); break;
                case fill_element:
                    require(frame_.elements == expected_elements_, "fill element before the last channel element");
                    ++frame_.fill_elements;
                    frame_.fill_bits += 3 + bits_of([this] { read_fill_element(); });
                    break;
                default: bits_.fail("unexpected syntactic element " + std::to_string(id));
            }
        }
        require(frame_.elements == expected_elements_, "channel element missing");
        const bool needs_config = format_.framing == Framing::adts && format_.channel_mode == ChannelMode::two_mono;
        require(frame_.pce_in_block.has_value() == needs_config, "program config element missing or superfluous");
        read_byte_alignment();
    }

    void read_program_config_element() {
        require(frame_.elements.empty() && !frame_.pce_in_block, "program config element is not the first element");
        frame_.pce_in_block = read_program_config();
    }

    void read_fill_element() {
        constexpr unsigned escape_count = 15;
        unsigned bytes = bits_.read(4);
        if (bytes == escape_count) bytes += bits_.read(8) - 1;
        for (; bytes > 0; --bytes) read_exactly(8, 0, "fill payload");
    }

    void read_channel_element(bool is_pair) {
        const ChannelElement element = {is_pair, bits_.read(4)};
        const std::size_t place = frame_.elements.size();
        require(place < expected_elements_.size() && element == expected_elements_[place],
                "unexpected channel element");
        frame_.elements.push_back(element);
        if (is_pair) {
            read_channel_pair();
        } else {
            frame_.channels.push_back(read_channel_stream(std::nullopt));
        }
    }

    void read_channel_pair() {
        std::optional<IcsInfo> common_info;
        frame_.common_window = bits_.read(1) == 1;
        if (frame_.common_window) {
            common_info = read_ics_info();
            read_mid_side(*common_info);
        }
        for (int i = 0; i < 2; ++i) frame_.channels.push_back(read_channel_stream(common_info));
    }

    void read_mid_side(const IcsInfo &info) {
        frame_.ms_mask_present = bits_.read(2);
        require(frame_.ms_mask_present != 3, "ms_mask_present is reserved");
        for (std::size_t group = 0; group < info.window_group_length.size(); ++group) {
            std::vector<bool> used(info.max_sfb, frame_.ms_mask_present == 2);
            if (frame_.ms_mask_present == 1) {
                std::generate(used.begin(), used.end(), [this] { return bits_.read(1) == 1; });
            }
            frame_.ms_used.push_back(std::move(used));
        }
    }

    // ---- individual_channel_stream ----

    const std::vector<unsigned> &bands(const IcsInfo &info) const {
        return standard_tables().bands(format_.sampling_frequency_index, info.is_short());
    }

    IcsInfo read_ics_info() {
        IcsInfo info{};
        read_exactly(1, 0, "ics_reserved_bit");
        info.window_sequence = bits_.read(2);
        read_exactly(1, 0, "window_shape");
        info.max_sfb = bits_.read(info.is_short() ? 4 : 6);
        require(info.max_sfb < bands(info).size(), "max_sfb " + std::to_string(info.max_sfb) + " exceeds the bands");
        info.window_group_length = {1};
        if (info.is_short()) {
            read_grouping(info);
        } else {
            read_exactly(1, 0, "predictor_data_present");
        }
        return info;
    }

    // Each bit, for windows 1 to 7, tells whether the window joins the group of the one before.
    void read_grouping(IcsInfo &info) {
        info.scale_factor_grouping = bits_.read(7);
        for (unsigned bit = 7; bit-- > 0;) {
            if ((info.scale_factor_grouping >> bit & 1u) == 1) {
                ++info.window_group_length.back();
            } else {
                info.window_group_length.push_back(1);
            }
        }
    }

    ChannelStream read_channel_stream(const std::optional<IcsInfo> &common_info) {
        ChannelStream stream{};
        stream.total_bits = bits_of([&] {
            stream.global_gain = bits_.read(8);
            stream.ics = common_info ? *common_info : read_ics_info();
            stream.section_bits = bits_of([&] { read_section_data(stream); });
            stream.scale_factor_bits = bits_of([&] { read_scale_factor_data(stream); });
            read_exactly(1, 0, "pulse_data_present");
            if (bits_.read(1) == 1) stream.tns_bits = bits_of([&] { stream.tns = read_tns_data(stream.ics); });
            read_exactly(1, 0, "gain_control_data_present");
            stream.spectral_bits = bits_of([&] { read_spectral_data(stream); });
        });
        return stream;
    }

    void read_section_data(ChannelStream &stream) {
        for (std::size_t group = 0; group < stream.ics.window_group_length.size(); ++group) {
            stream.codebook.push_back(read_sections(stream.ics));
        }
    }

    // The codebook of each band of one group.
    std::vector<unsigned> read_sections(const IcsInfo &info) {
        std::vector<unsigned> codebooks;
        while (codebooks.size() < info.max_sfb) {
            const unsigned codebook = bits_.read(4);
            require(codebook <= escape_codebook, "codebook " + std::to_string(codebook));
            require(codebooks.empty() || codebooks.back() != codebook, "adjacent sections of the same codebook");
            const unsigned length = read_section_length(info);
            require(length > 0, "empty section");
            require(length <= info.max_sfb - codebooks.size(), "section exceeds max_sfb");
            codebooks.insert(codebooks.end(), length, codebook);
        }
        return codebooks;
    }

    unsigned read_section_length(const IcsInfo &info) {
        const unsigned increment_bits = info.is_short() ? 3 : 5;
        const unsigned escape = (1u << increment_bits) - 1;
        unsigned length = 0;
        unsigned increment = 0;
        do {
            increment = bits_.read(increment_bits);
            length += increment;
        } while (increment == escape);
        return length;
    }

    void read_scale_factor_data(ChannelStream &stream) {
        int last = static_cast<int>(stream.global_gain);
        for (const auto &codebooks : stream.codebook) {
            std::vector<int> &scale_factors = stream.scale_factor.emplace_back();
            for (const unsigned codebook : codebooks) {
                if (codebook != 0) last = read_scale_factor(last);
                scale_factors.push_back(codebook != 0 ? last : no_scale_factor);
            }
        }
    }

    int read_scale_factor(int last) {
        const unsigned index = standard_tables().code(scale_factor_codebook).decode(bits_);
        const int scale_factor = last + static_cast<int>(index) - scale_factor_difference_offset;
        require(scale_factor >= 0 && scale_factor <= largest_scale_factor,
                "scale factor " + std::to_string(scale_factor));
        return scale_factor;
    }

    TnsFilter read_tns_data(const IcsInfo &info) {
        TnsFilter filter{};
        require(!info.is_short(), "TNS on short windows");
        read_exactly(2, 1, "n_filt");
        filter.coef_res = bits_.read(1);
        filter.length = bits_.read(6);
        require(filter.length < bands(info).size(), "TNS length exceeds the bands");
        filter.order = bits_.read(5);
        require(filter.order <= max_tns_order, "TNS order " + std::to_string(filter.order));
        if (filter.order == 0) return filter;
        filter.direction = bits_.read(1);
        filter.coef_compress = bits_.read(1);
        const unsigned coef_bits = 3 + filter.coef_res - filter.coef_compress;
        for (unsigned i = 0; i < filter.order; ++i) filter.coef[i] = read_signed(coef_bits);
        return filter;
    }

    // A number in two's complement.
    int read_signed(unsigned count) {
        const int value = static_cast<int>(bits_.read(count));
        return value < 1 << (count - 1) ? value : value - (1 << count);
    }

    // ---- spectral_data ----

    void read_spectral_data(ChannelStream &stream) {
        stream.quantized.assign(spectral_lines, 0);
        const std::vector<unsigned> &limits = bands(stream.ics);
        std::size_t first_window = 0;
        for (std::size_t group = 0; group < stream.codebook.size(); ++group) {
            const std::size_t windows = stream.ics.window_group_length[group];
            for (std::size_t band = 0; band < stream.codebook[group].size(); ++band) {
                const auto lines = std::span(stream.quantized)
                                       .subspan(first_window * short_window_lines + windows * limits[band],
                                                windows * (limits[band + 1] - limits[band]));
                if (stream.codebook[group][band] != 0) read_band(lines, stream.codebook[group][band]);
            }
            first_window += windows;
        }
    }

    void read_band(std::span<int> lines, unsigned codebook) {
        const SpectralCodebook book = spectral_codebook(codebook);
        const HuffmanCode &code = standard_tables().code(codebook);
        for (; !lines.empty(); lines = lines.subspan(book.dimension)) {
            const auto values = lines.first(book.dimension);
            unsigned index = code.decode(bits_);
            for (std::size_t i = book.dimension; i-- > 0; index /= book.modulus) {
                values[i] = static_cast<int>(index % book.modulus) + book.lowest;
            }
            if (book.lowest == 0) read_signs(values);
            if (codebook == escape_codebook) read_escapes(values);
        }
    }

    void read_signs(std::span<int> values) {
        for (int &value : values) {
            if (value != 0 && bits_.read(1) == 1) value = -value;
        }
    }

    void read_escapes(std::span<int> values) {
        for (int &value : values) {
            if (value == escape_value) value = read_escape();
            if (value == -escape_value) value = -read_escape();
        }
    }

    // The prefix tells the magnitude's highest bit, so that no magnitude has two escape sequences.
    int read_escape() {
        unsigned length = 4;
        while (bits_.read(1) == 1) {
            ++length;
            require(length <= max_escape_length, "escape sequence of a magnitude above 8191");
        }
        return static_cast<int>((1u << length) + bits_.read(length));
    }

    std::span<const std::uint8_t> bytes_;
    BitReader bits_;
    StreamFormat format_;
    std::vector<ChannelElement> expected_elements_;
    Frame frame_;
};

}  // namespace

Frame read_frame(std::span<const std::uint8_t> bytes, const StreamFormat &format, bool first_frame) {
    return FrameReader(bytes, format).read(first_frame);
}

}  // namespace tavik_test
