// Sections: maximal runs of bands with the same codebook within a window group, as section_data sends them.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

inline constexpr u32 section_codebook_bits = 4;

// sect_len is sent in fields of `bits` bits; after a field of all ones (`escape`) another one follows.
struct SectionLengthField {
    u32 bits;
    u32 escape;
};

inline constexpr SectionLengthField long_section_length{5, 31};
inline constexpr SectionLengthField short_section_length{3, 7};

constexpr SectionLengthField section_length_field(bool long_block) {
    return long_block ? long_section_length : short_section_length;
}

// Calls visit(codebook, bands) for each section of the group whose first `max_sfb` codebooks are given.
template <typename Visitor>
void for_each_section(std::span<const u8> codebooks, Visitor visit) {
    for (std::size_t begin = 0; begin < codebooks.size();) {
        std::size_t end = begin + 1;
        while (end < codebooks.size() && codebooks[end] == codebooks[begin]) ++end;
        visit(u32{codebooks[begin]}, static_cast<u32>(end - begin));
        begin = end;
    }
}

}  // namespace tavik
