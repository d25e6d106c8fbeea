// Draws a random valid configuration.
#pragma once

#include <iterator>

#include "input_bytes.h"
#include "support/checked_encoder.h"
#include "tavik.h"

namespace tavik_fuzz {

inline EncoderConfig draw_valid_config(InputBytes &input) {
    EncoderConfig config{};
    config.channel_mode = input.below(3);
    config.sample_rate = tavik_test::sample_rates[input.below(tavik_test::sample_rates.size())];
    config.bit_rate = input.between(TAVIK_MIN_BIT_RATE, TAVIK_MAX_BIT_RATE_FACTOR * config.sample_rate);
    config.header_type = input.below(3);
    const unsigned flags = input.byte();
    config.constant_rate = flags & 1;
    config.emit_priming_frame = flags >> 1 & 1;
    config.tns_disable = (flags >> 2 & 3) == 3 ? 1 : 0;
    config.home = flags >> 4 & 1;
    config.original_copy = flags >> 5 & 1;
    config.copyright_id_present = flags >> 6 & 1;
    for (std::size_t i = 0; i < std::size(config.copyright_id); ++i) {
        config.copyright_id[i] = static_cast<std::uint8_t>(flags * (2 * i + 37));
    }
    return config;
}

}  // namespace tavik_fuzz
