#include "wav_header.h"

#include <algorithm>
#include <bit>
#include <fstream>
#include <string_view>

namespace tavik {
namespace {

constexpr size_t longest_header = 65536;

// WAVE_FORMAT_PCM, WAVE_FORMAT_IEEE_FLOAT, and the one that names the format further behind.
constexpr uint64_t tag_pcm = 1;
constexpr uint64_t tag_float = 3;
constexpr uint64_t tag_extensible = 0xFFFE;

uint64_t little_endian(const uint8_t *bytes, size_t count) {
    uint64_t value = 0;
    for (size_t i = count; i-- > 0;) value = value << 8 | bytes[i];
    return value;
}

bool starts_with(const uint8_t *bytes, std::string_view text) { return std::equal(text.begin(), text.end(), bytes); }

const char *sample_format(uint64_t tag, uint64_t bits) {
    if (tag == tag_float) return bits == 32 ? "f32le" : nullptr;
    if (tag != tag_pcm) return nullptr;
    switch (bits) {
        case 8: return "u8";
        case 16: return "s16le";
        case 24: return "s24le";
        case 32: return "s32le";
        default: return nullptr;
    }
}

// The chunk "fmt ".
std::optional<PcmFormat> read_format(const uint8_t *chunk, size_t size) {
    constexpr size_t plain_bytes = 16;
    constexpr size_t extensible_bytes = 40;
    if (size < plain_bytes) return std::nullopt;
    const bool is_extensible = little_endian(chunk, 2) == tag_extensible && size >= extensible_bytes;
    const uint64_t bits = little_endian(chunk + 14, 2);
    const char *name = sample_format(little_endian(is_extensible ? chunk + 24 : chunk, 2), bits);
    PcmFormat format{.sample_format = name != nullptr ? name : "",
                     .rate = static_cast<uint32_t>(little_endian(chunk + 4, 4)),
                     .channels = static_cast<uint32_t>(little_endian(chunk + 2, 2))};
    const uint64_t mask = is_extensible ? little_endian(chunk + 20, 4) : 0;
    if (std::popcount(mask) == static_cast<int>(format.channels)) format.channel_mask = mask;
    const bool is_plain = little_endian(chunk + 12, 2) == format.channels * bits / 8;
    const bool is_known = name != nullptr && is_plain && is_possible(format.rate, format.channels);
    return is_known ? std::optional(format) : std::nullopt;
}

// A program that writes into a pipe, or is killed, leaves some number around 2^31 or 2^32 for the length, or none.
bool is_placeholder(uint64_t bytes) {
    return bytes == 0 || (bytes >= 0x7FFF'0000 && bytes <= 0x8000'0100) || bytes >= 0xFFFF'0000;
}

// What the chunks in front of the samples tell.
struct Contents {
    std::optional<PcmFormat> format;
    uint64_t bytes_per_second = 0;
    bool is_rf64 = false;
    uint64_t long_bytes = 0;  // of the samples, in RF64

    void take(std::string_view name, const uint8_t *chunk, size_t size) {
        if (name == "fmt ") {
            format = read_format(chunk, size);
            if (format) bytes_per_second = uint64_t{format->rate} * little_endian(chunk + 12, 2);
        }
        if (name == "ds64" && size >= 16) long_bytes = little_endian(chunk + 8, 8);
    }

    // `size` stands in the header of the samples' chunk.
    std::optional<WavHeader> header(uint64_t size) const {
        if (!format) return std::nullopt;
        WavHeader header{.format = *format, .seconds = {}, .data_bytes = data_bytes(size)};
        if (header.data_bytes) {
            header.seconds = static_cast<double>(*header.data_bytes) / static_cast<double>(bytes_per_second);
        }
        return header;
    }

    std::optional<uint64_t> data_bytes(uint64_t size) const {
        if (is_rf64 && size == 0xFFFF'FFFF) {
            const bool is_length = long_bytes > 0 && long_bytes < uint64_t{1} << 62;
            return is_length ? std::optional(long_bytes) : std::nullopt;
        }
        return is_placeholder(size) ? std::nullopt : std::optional(size);
    }
};

}  // namespace

std::optional<WavHeader> read_wav_header(std::vector<uint8_t> &head, const ReadMore &read_more) {
    if (!read_more(head, 12) || !starts_with(head.data() + 8, "WAVE")) return std::nullopt;
    Contents contents;
    contents.is_rf64 = starts_with(head.data(), "RF64");
    if (!contents.is_rf64 && !starts_with(head.data(), "RIFF")) return std::nullopt;
    while (read_more(head, 8)) {
        const size_t start = head.size();
        const std::string name(head.end() - 8, head.end() - 4);
        const size_t size = little_endian(head.data() + start - 4, 4);
        if (name == "data") return contents.header(size);
        if (start + size > longest_header || !read_more(head, size + size % 2)) return std::nullopt;
        contents.take(name, head.data() + start, size);
    }
    return std::nullopt;
}

std::optional<WavHeader> wav_header_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<uint8_t> head;
    return read_wav_header(head, [&file](std::vector<uint8_t> &bytes, size_t count) {
        const size_t present = bytes.size();
        bytes.resize(present + count);
        file.read(reinterpret_cast<char *>(bytes.data() + present),  // NOLINT(*-reinterpret-cast): bytes
                  static_cast<std::streamsize>(count));
        return file.good();
    });
}

}  // namespace tavik
